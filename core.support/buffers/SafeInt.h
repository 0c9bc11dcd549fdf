#pragma once

#include <type_traits>

// Checked size and offset arithmetic. Every sum, difference and product of
// sizes and offsets in the buffer and container code goes through here; an
// overflow ends in SafeIntExceptionHandler, which throws ArithmeticException.

class SafeIntExceptionHandler
{
public:
    [[noreturn]] static void SafeIntOnOverflow();
};

namespace SafeInt {

template <typename T>
inline T add(T a, T b)
{
    static_assert(std::is_integral<T>::value, "checked arithmetic is for integers");
    T r;
    if (__builtin_add_overflow(a, b, &r))
        SafeIntExceptionHandler::SafeIntOnOverflow();
    return r;
}

template <typename T>
inline T sub(T a, T b)
{
    static_assert(std::is_integral<T>::value, "checked arithmetic is for integers");
    T r;
    if (__builtin_sub_overflow(a, b, &r))
        SafeIntExceptionHandler::SafeIntOnOverflow();
    return r;
}

template <typename T>
inline T mul(T a, T b)
{
    static_assert(std::is_integral<T>::value, "checked arithmetic is for integers");
    T r;
    if (__builtin_mul_overflow(a, b, &r))
        SafeIntExceptionHandler::SafeIntOnOverflow();
    return r;
}

// Converts between integer types, throwing when the value does not fit.
template <typename To, typename From>
inline To cast(From v)
{
    static_assert(std::is_integral<To>::value && std::is_integral<From>::value,
                  "checked conversion is for integers");
    To r;
    if (__builtin_add_overflow(v, From(0), &r))
        SafeIntExceptionHandler::SafeIntOnOverflow();
    return r;
}

} // namespace SafeInt
