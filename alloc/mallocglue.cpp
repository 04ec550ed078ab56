// The process's malloc: fresh requests of BigBlocks::minSize and more go to the
// big blocks, everything else to glibc, as glibc's manual allows ("Replacing
// malloc"). Linked into the window's executables only; builds with sanitizers
// leave it out, since those bring a malloc of their own.
#include "alloc/mallocglue.h"

#include "alloc/bigblocks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include <dlfcn.h>

// glibc's own entry points, which it exports for allocators like this one.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_realloc(void *p, std::size_t size);
void __libc_free(void *p);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

alignas(BigBlocks) unsigned char storage[sizeof(BigBlocks)];
// Set once the blocks run; until then, and if they cannot, glibc has it all.
BigBlocks *blocks = nullptr;
std::size_t (*glibcUsableSize)(void *) = nullptr;

// Never destroyed: memory handed out must stay valid until the very end.
__attribute__((constructor)) void startBigBlocks()
{
    glibcUsableSize = reinterpret_cast<std::size_t (*)(void *)>(dlsym(RTLD_NEXT, "malloc_usable_size"));
    auto *made = new (storage) BigBlocks;
    if (made->start())
        blocks = made;
}

} // namespace

bool bigBlocksOwn(const void *p)
{
    return blocks && blocks->owns(p);
}

// The C library names its parameters with reserved names; these do not.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

void *malloc(std::size_t size)
{
    if (blocks && size >= BigBlocks::minSize) {
        if (void *p = blocks->allocate(size))
            return p;
    }
    return __libc_malloc(size);
}

void free(void *p)
{
    if (blocks && blocks->owns(p))
        blocks->release(p);
    else
        __libc_free(p);
}

void *realloc(void *p, std::size_t size)
{
    if (!blocks)
        return __libc_realloc(p, size);
    if (!p)
        return malloc(size);
    if (!blocks->owns(p)) {
        // A buffer growing past the size moves over, so that a spare as big
        // as it is mapped before the first copy of it is asked for.
        if (size < BigBlocks::minSize || !glibcUsableSize)
            return __libc_realloc(p, size);
        const std::size_t had = glibcUsableSize(p);
        if (size > had) {
            if (void *moved = blocks->allocate(size)) {
                std::memcpy(moved, p, had);
                __libc_free(p);
                return moved;
            }
        }
        return __libc_realloc(p, size);
    }
    if (size == 0) {
        blocks->release(p);
        return nullptr;
    }
    if (blocks->resize(p, size))
        return p;
    void *moved = __libc_malloc(size);
    if (moved) {
        std::memcpy(moved, p, blocks->usableSize(p));
        blocks->release(p);
    }
    return moved;
}

void *reallocarray(void *p, std::size_t count, std::size_t size)
{
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    return realloc(p, bytes);
}

std::size_t malloc_usable_size(void *p)
{
    if (blocks && blocks->owns(p))
        return blocks->usableSize(p);
    return glibcUsableSize ? glibcUsableSize(p) : 0;
}

} // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
