/* The platform's allocator where tcmalloc cannot be: under a sanitizer or Valgrind. */
#include <gperftools/tcmalloc.h>
#include <stdint.h>
#include <stdlib.h>

/* What tcmalloc answers with null, a negative count for example, an allocator that watches takes for a fault. */
void *tc_malloc(size_t size) noexcept
{
    return size > PTRDIFF_MAX ? nullptr : malloc(size);
}

void tc_free(void *ptr) noexcept
{
    free(ptr);
}
