// The window's malloc, in a process of its own built without sanitizers (they
// replace malloc too). Big requests must land in slots, small ones stay with
// glibc, and contents survive every move between the two.
#include "alloc/mallocglue.h"
#include "bytemarks.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <malloc.h>

namespace {

constexpr std::size_t MB = std::size_t(1) << 20;
int failures = 0;

void check(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "FAIL: %s\n", what);
        ++failures;
    }
}

bool inSlot(void *p, std::size_t size)
{
    return bigBlocksOwn(p) && malloc_usable_size(p) == size;
}


} // namespace

int main()
{
    void *small = std::malloc(1000);
    check(small && !inSlot(small, 1000), "a small block stays with glibc");

    void *big = std::malloc(20 * MB);
    check(big && inSlot(big, 20 * MB), "a big block comes from a slot");
    markBytes(big, 20 * MB, 1);
    big = std::realloc(big, 60 * MB);
    check(big && inSlot(big, 60 * MB) && hasMarks(big, 20 * MB, 1), "a slot grows and keeps its contents");

    // Past a slot's size it moves to glibc.
    big = std::realloc(big, 300 * MB);
    check(big && !inSlot(big, 300 * MB) && hasMarks(big, 20 * MB, 1), "too big for a slot: back to glibc, contents kept");
    std::free(big);

    // A glibc buffer that grows past the smallest size moves into a slot.
    void *growing = std::malloc(4 * MB);
    markBytes(growing, 4 * MB, 9);
    growing = std::realloc(growing, 16 * MB);
    check(growing && inSlot(growing, 16 * MB) && hasMarks(growing, 4 * MB, 9), "growing into a slot keeps the contents");
    growing = std::realloc(growing, 1000);
    check(growing && hasMarks(growing, 1000, 9), "shrinking keeps the contents");
    std::free(growing);

    // calloc stays with glibc, whose fresh pages are already zero; a big
    // block of it moves to a slot when it grows, not when it shrinks.
    void *zeroed = std::calloc(1, 20 * MB);
    check(zeroed && !inSlot(zeroed, 20 * MB), "calloc stays with glibc");
    markBytes(zeroed, 12 * MB, 3);
    zeroed = std::realloc(zeroed, 12 * MB);
    check(zeroed && !inSlot(zeroed, 12 * MB) && hasMarks(zeroed, 12 * MB, 3), "a glibc block that shrinks stays there");
    zeroed = std::realloc(zeroed, 30 * MB);
    check(zeroed && inSlot(zeroed, 30 * MB) && hasMarks(zeroed, 12 * MB, 3), "a glibc block that grows moves to a slot");
    std::free(zeroed);

    errno = 0;
    volatile std::size_t huge = SIZE_MAX / 2; // not a constant, or the compiler objects
    check(reallocarray(nullptr, huge, 4) == nullptr && errno == ENOMEM, "reallocarray refuses a product that overflows");
    void *array = reallocarray(nullptr, 1024, 16 * 1024);
    check(array && inSlot(array, 16 * MB), "reallocarray of a big array comes from a slot");
    std::free(array);
    std::free(small);

    check(std::realloc(std::malloc(10 * MB), 0) == nullptr, "realloc to nothing frees a slot");
    std::free(nullptr);

    // Many at once: every slot taken, then glibc takes the rest.
    void *many[12] = {};
    for (int i = 0; i < 12; ++i) {
        many[i] = std::malloc(9 * MB);
        check(many[i] != nullptr, "twelve big blocks at once");
        if (many[i])
            markBytes(many[i], 9 * MB, static_cast<unsigned char>(i * 16));
    }
    for (int i = 0; i < 12; ++i) {
        check(many[i] && hasMarks(many[i], 9 * MB, static_cast<unsigned char>(i * 16)), "a block is not shared");
        std::free(many[i]);
    }

    if (failures == 0)
        std::puts("malloc checks passed");
    return failures == 0 ? 0 : 1;
}
