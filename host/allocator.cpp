/* The platform's allocator where tcmalloc cannot be: under a sanitizer or Valgrind. */
#include <atomic>
#include <dlfcn.h>
#include <gperftools/tcmalloc.h>
#include <stdint.h>
#include <stdlib.h>

/*
 * The shared library loads tcmalloc all the same. Its start asks for a block by the name that is taken here, and counts
 * on having given it itself: without a first block it fails where "operator new" is its own, as in clang's C programs.
 */
static void start_tcmalloc() noexcept
{
    auto allocate = reinterpret_cast<decltype(&tc_malloc)>(dlsym(RTLD_NEXT, "tc_malloc"));
    auto release = reinterpret_cast<decltype(&tc_free)>(dlsym(RTLD_NEXT, "tc_free"));

    if (allocate != nullptr && release != nullptr) {
        release(allocate(1));
    }
}

/* What tcmalloc answers with null, a negative count for example, an allocator that watches takes for a fault. */
void *tc_malloc(size_t size) noexcept
{
    static std::atomic<bool> started;

    if (!started.exchange(true)) {
        start_tcmalloc();
    }
    return size > PTRDIFF_MAX ? nullptr : malloc(size);
}

void tc_free(void *ptr) noexcept
{
    free(ptr);
}

/* A leak checker asks for this: tcmalloc keeps what it allocates at its start. A program's own answer goes before. */
extern "C" __attribute__((weak)) const char *__lsan_default_suppressions()
{
    return "leak:libtcmalloc\n";
}
