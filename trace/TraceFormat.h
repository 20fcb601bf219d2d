// Compile-time assembly of a trace statement's format: the message, then
// " @<function>+<line>" and a line feed. Nothing here runs when the module runs.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace trace_format {

template <std::size_t N> struct FixedText {
    char text[N];
};

constexpr bool startsWith(const char* s, const char* prefix)
{
    for (; *prefix != '\0'; ++s, ++prefix) {
        if (*s != *prefix) {
            return false;
        }
    }
    return true;
}

struct Range {
    std::size_t begin;
    std::size_t end;
};

// The qualified name inside a compiler's function signature: the return type,
// parameters and qualifiers go, and inside a lambda the enclosing function's
// name stands. Template arguments are tracked so that "std::vector<a, b> f()"
// finds "f".
constexpr Range functionName(const char* sig)
{
    std::size_t depth = 0;
    std::size_t begin = 0;
    std::size_t i = 0;
    for (; sig[i] != '\0'; ++i) {
        const char c = sig[i];
        if (startsWith(sig + i, "operator")) {
            // "operator()" and "operator[]" are names, not parameter lists.
            i += 8;
            while (sig[i] == ' ') {
                ++i;
            }
            if (sig[i] == '(' || sig[i] == '[') {
                ++i;
            }
            continue;
        }
        if (startsWith(sig + i, "::<lambda")) {
            break;  // MSVC: "Class::member::<lambda_1>::operator ()"
        }
        if (c == '<') {
            ++depth;
        } else if (c == '>' && depth > 0) {
            --depth;
        } else if (depth == 0 && c == ' ') {
            begin = i + 1;
        } else if (depth == 0 && c == '(') {
            break;
        }
    }
    Range r{begin, i};
    // Anonymous namespaces are not part of the name a reader looks for.
    for (const char* anon : {"{anonymous}::", "`anonymous-namespace'::"}) {
        std::size_t len = 0;
        while (anon[len] != '\0') {
            ++len;
        }
        if (r.end - r.begin > len && startsWith(sig + r.begin, anon)) {
            r.begin += len;
        }
    }
    return r;
}

template <std::size_t N>
constexpr FixedText<N> makeFormat(const char* message, const char* signature, unsigned line)
{
    FixedText<N> out{};
    std::size_t at = 0;
    for (; *message != '\0'; ++message) {
        out.text[at++] = *message;
    }
    out.text[at++] = ' ';
    out.text[at++] = '@';
    const Range name = functionName(signature);
    for (std::size_t i = name.begin; i < name.end; ++i) {
        out.text[at++] = signature[i];
    }
    out.text[at++] = '+';
    char digits[12] = {};
    std::size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + line % 10);
        line /= 10;
    } while (line != 0);
    while (count > 0) {
        out.text[at++] = digits[--count];
    }
    out.text[at++] = '\n';
    out.text[at] = '\0';
    return out;
}

}  // namespace trace_format
