#pragma once

#include <cstddef>
#include <exception>
#include <string>

#if defined(__GNUC__)
#define MINIJSON_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define MINIJSON_PRINTF_FORMAT(fmt, args)
#endif

namespace minijson {

// Base of every error the JSON library throws; the message is built printf-style.
class CException : public std::exception
{
public:
    explicit CException(const char* format, ...) MINIJSON_PRINTF_FORMAT(2, 3);

    const char* what() const noexcept override { return m_message.c_str(); }
    const std::string& Message() const noexcept { return m_message; }

protected:
    CException() = default; // for subclasses that format the message themselves

    std::string m_message;
};

// A parse failure. Carries the whole input and the byte offset at which the problem was found,
// so that a caller can log the context of a broken bridge reply.
class CParseErrorException : public CException
{
public:
    CParseErrorException(std::string text, std::size_t position, const char* format, ...)
        MINIJSON_PRINTF_FORMAT(4, 5);

    const std::string& Text() const noexcept { return m_text; }
    std::size_t Position() const noexcept { return m_position; }

private:
    std::string m_text;
    std::size_t m_position;
};

// Opening, reading or writing a file failed.
class CIOException : public CException
{
public:
    explicit CIOException(const char* format, ...) MINIJSON_PRINTF_FORMAT(2, 3);
};

} // namespace minijson
