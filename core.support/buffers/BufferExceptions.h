#pragma once

#include <QString>
#include <cstdint>
#include <stdexcept>
#include <string>

// The four failures of the buffer layer. Each carries its numbers in the
// message so that a log line alone tells what went wrong.

class ReadBufferException : public std::runtime_error
{
public:
    ReadBufferException(uint64_t size, uint64_t offset, uint64_t requested);
};

class WriteBufferException : public std::runtime_error
{
public:
    WriteBufferException(uint64_t size, uint64_t offset, uint64_t requested);
};

class SeekBufferException : public std::runtime_error
{
public:
    SeekBufferException(uint64_t size, uint64_t oldOffset, uint64_t newOffset);
};

class ArithmeticException : public std::runtime_error
{
public:
    explicit ArithmeticException(const char *message);
    explicit ArithmeticException(const std::string &message);
    explicit ArithmeticException(const QString &message);
};
