/* The print filter: suppresses nothing but the keys that the environment or the program names. */
#include "host.h"
#include "host_prv.h"
#include "kel_lib.h"

#include <atomic>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

HOST_SERVICE kel_module_t module_print_filter = {KEL_MOD_T_NORMAL, 0,      0, "KEL_print_filter", 0, 0, nullptr, 0,
                                                 nullptr,          nullptr};

namespace
{

struct Key {
    char name[200];
    int level;
};

Key keys[64];
size_t key_count;
pthread_mutex_t keys_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_once_t environment_read = PTHREAD_ONCE_INIT;
std::atomic<host_filter_decide_t> decide_instead;

LONG add_key(const char *name, size_t length, int level)
{
    LONG result = KEL_ERROR;
    pthread_mutex_lock(&keys_lock);
    if (length < sizeof(keys[0].name) && key_count < sizeof(keys) / sizeof(keys[0])) {
        Key &key = keys[key_count++];
        memcpy(key.name, name, length);
        key.name[length] = '\0';
        key.level = level;
        result = KEL_OK;
    }
    pthread_mutex_unlock(&keys_lock);
    return result;
}

/* The level behind a key's colon; text that names none is no level, and the key is refused. */
bool level_of(const char *name, size_t length, int *level)
{
    static const char *const names[] = {"info", "warning", "err"};
    for (int i = _kel_print_lv_info; i < _kel_print_lv_max; i++) {
        if (strlen(names[i]) == length && memcmp(names[i], name, length) == 0) {
            *level = i;
            return true;
        }
    }
    return false;
}

/* KEL_HOST_FILTER: KEY[:LEVEL], separated by commas. */
void read_environment()
{
    const char *rest = getenv("KEL_HOST_FILTER");
    while (rest != nullptr && *rest != '\0') {
        size_t length = strcspn(rest, ",");
        size_t name = strcspn(rest, ",:");
        int level = HOST_EVERY_LEVEL;
        bool known = name == length || level_of(rest + name + 1, length - name - 1, &level);
        if (length != 0 && (!known || name == 0 || add_key(rest, name, level) != KEL_OK)) {
            fprintf(stderr, "KEL_HOST_FILTER: \"%.*s\" is no KEY[:info|warning|err], or one too many\n", (int)length,
                    rest);
        }
        rest += length + (rest[length] == ',' ? 1 : 0);
    }
}

bool suppressed(int level, const char *name)
{
    bool found = false;
    pthread_mutex_lock(&keys_lock);
    for (size_t i = 0; i < key_count && !found; i++) {
        found = (keys[i].level == HOST_EVERY_LEVEL || keys[i].level == level) &&
                (strcmp(keys[i].name, "*") == 0 || strcmp(keys[i].name, name) == 0);
    }
    pthread_mutex_unlock(&keys_lock);
    return found;
}

} // namespace

LONG host_filter_add(const char *key, int level)
{
    pthread_once(&environment_read, read_environment);
    return add_key(key, strlen(key), level);
}

void host_filter_clear(void)
{
    pthread_once(&environment_read, read_environment);
    pthread_mutex_lock(&keys_lock);
    key_count = 0;
    pthread_mutex_unlock(&keys_lock);
}

void host_filter_decide(host_filter_decide_t decide)
{
    decide_instead = decide;
}

HOST_SERVICE int kel_info_print_filter_is_filtered(int level, const char *name)
{
    KeepErrno keep;
    pthread_once(&environment_read, read_environment);
    host_filter_decide_t decide = decide_instead;
    int answer = decide != nullptr ? decide(level, name) : (int)suppressed(level, name);
    host_tell("filter(%d, %s) = %d", level, name, answer);
    return answer;
}
