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

constexpr std::size_t length(const char* s)
{
    std::size_t n = 0;
    while (s[n] != '\0') {
        ++n;
    }
    return n;
}

constexpr bool isNameChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// The length of an anonymous namespace's qualifier at `s` (GCC, Clang, MSVC), else 0.
constexpr std::size_t anonymousNamespace(const char* s)
{
    for (const char* anon : {"{anonymous}::", "(anonymous namespace)::", "`anonymous-namespace'::"}) {
        if (startsWith(s, anon)) {
            return length(anon);
        }
    }
    return 0;
}

// Whether the keyword "operator" starts at `i` as a word of its own.
constexpr bool operatorAt(const char* sig, std::size_t i)
{
    return startsWith(sig + i, "operator") && (i == 0 || !isNameChar(sig[i - 1])) && !isNameChar(sig[i + 8]);
}

// The end of the operator's name that starts at `i`: "operator()", "operator<<",
// "operator bool", "operator new[]"; MSVC writes a blank before a symbol.
constexpr std::size_t operatorEnd(const char* sig, std::size_t i)
{
    i += 8;
    while (sig[i] == ' ') {
        ++i;
    }
    if (sig[i] == '(' || sig[i] == '[') {
        return sig[i + 1] != '\0' ? i + 2 : i + 1;  // "()" or "[]"
    }
    if (!isNameChar(sig[i])) {
        while (sig[i] != '\0' && sig[i] != '(' && sig[i] != ' ' && !isNameChar(sig[i])) {
            ++i;
        }
        return i;
    }
    // A conversion, "new" or "delete": up to the parameters, template arguments included.
    std::size_t depth = 0;
    for (; sig[i] != '\0' && (depth > 0 || sig[i] != '('); ++i) {
        depth += sig[i] == '<' ? 1 : 0;
        depth -= sig[i] == '>' && depth > 0 ? 1 : 0;
    }
    while (i > 0 && sig[i - 1] == ' ') {
        --i;
    }
    return i;
}

struct Range {
    std::size_t begin;
    std::size_t end;
};

// Where the qualified name stands inside a compiler's function signature:
// GCC's and Clang's "__PRETTY_FUNCTION__" (a return type, possibly one that
// wraps the name as a function or member pointer's does, then the name and its
// parameters) or MSVC's "__FUNCTION__" (the name alone). Inside a lambda it is
// the enclosing function's name.
constexpr Range functionName(const char* sig)
{
    std::size_t depth = 0;  // of template argument lists
    std::size_t begin = 0;
    std::size_t i = 0;
    while (sig[i] != '\0') {
        const char c = sig[i];
        if (depth == 0) {
            if (const std::size_t anon = anonymousNamespace(sig + i)) {
                begin = begin == i ? i + anon : begin;
                i += anon;
                continue;
            }
            if (startsWith(sig + i, "::<lambda")) {
                break;  // MSVC: "X::f::<lambda_1>::operator ()"
            }
            if (operatorAt(sig, i)) {
                return {begin, operatorEnd(sig, i)};
            }
            if (c == '(') {
                // The parameters follow a name; any other parenthesis opens a
                // declarator such as the "(*" of a returned function pointer.
                if (i > 0 && (isNameChar(sig[i - 1]) || sig[i - 1] == '>')) {
                    break;
                }
                begin = i + 1;
            } else if (c == ' ' || c == '*' || c == '&') {
                begin = i + 1;
            }
        }
        if (c == '<') {
            ++depth;
        } else if (c == '>' && depth > 0) {
            --depth;
        }
        ++i;
    }
    return {begin, i};
}

// Writes the name of `range` to `out` as a reader looks it up in the source:
// without anonymous namespaces and template arguments ("Holder<T>::run" and
// "Holder<int>::run" are "Holder::run"), and "operator ()" as "operator()".
// Returns the position after it.
constexpr std::size_t writeName(const char* sig, Range range, char* out, std::size_t at)
{
    std::size_t depth = 0;
    for (std::size_t i = range.begin; i < range.end;) {
        if (depth == 0 && operatorAt(sig, i)) {
            for (const char* word = "operator"; *word != '\0'; ++word) {
                out[at++] = *word;
            }
            i += 8;
            while (i < range.end && sig[i] == ' ' && !isNameChar(sig[i + 1])) {
                ++i;
            }
            for (; i < range.end; ++i) {
                out[at++] = sig[i];
            }
            break;
        }
        if (const std::size_t anon = depth == 0 ? anonymousNamespace(sig + i) : 0) {
            i += anon;
            continue;
        }
        const char c = sig[i++];
        if (c == '<') {
            ++depth;
        } else if (c == '>' && depth > 0) {
            --depth;
        } else if (depth == 0) {
            out[at++] = c;
        }
    }
    return at;
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
    at = writeName(signature, functionName(signature), out.text, at);
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
