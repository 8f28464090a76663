/* Loads the plug-in that its argument names, and runs it. */
#include <dlfcn.h>
#include <stdio.h>

int main(int count, char *arguments[])
{
    void *plugin = dlopen(count > 1 ? arguments[1] : "", RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    long (*run)(void) = (long (*)(void))dlsym(plugin, "plugin_run");
    printf("the plug-in says %ld\n", run());
    return 0;
}
