#ifndef CODETEXT_H
#define CODETEXT_H

#include <cstddef>

// A {code, text} table as the bus documents give them, and its one lookup.
struct CodeText
{
    int code;
    const char *text;
};

// Text of the entry whose code matches, or fallback (may be nullptr).
template <std::size_t N>
constexpr const char *lookup(const CodeText (&table)[N], int code, const char *fallback = nullptr)
{
    for (const CodeText &e : table)
        if (e.code == code)
            return e.text;
    return fallback;
}

#endif // CODETEXT_H
