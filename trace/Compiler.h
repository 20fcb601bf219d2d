// The few things that differ between the compilers the module is built with
// (GCC and Clang for the host and mingw-w64, MSVC for Windows). Nothing else in
// the module tests the compiler.
#pragma once

#if defined(_MSC_VER) && !defined(__clang__)
// "NdisWmi::linkSpeed", "ZtNic::~ZtNic", "X::f::<lambda_1>::operator ()".
#define ZT_FUNCTION_SIGNATURE __FUNCTION__
#define ZT_PRINTF_FORMAT(formatIndex, firstArg)
#else
// "unsigned long NdisWmi::linkSpeed() const", "X::f()::<lambda(int)>".
#define ZT_FUNCTION_SIGNATURE __PRETTY_FUNCTION__
#define ZT_PRINTF_FORMAT(formatIndex, firstArg) __attribute__((format(printf, formatIndex, firstArg)))
#endif
