#include "minijson/exceptions.h"

#include <cstdarg>
#include <cstdio>

namespace minijson {
namespace {

std::string formatMessage(const char* format, va_list args)
{
    va_list measureArgs;
    va_copy(measureArgs, args);
    const int length = std::vsnprintf(nullptr, 0, format, measureArgs);
    va_end(measureArgs);
    if (length <= 0)
        return std::string();
    std::string message(static_cast<std::size_t>(length), '\0');
    // vsnprintf writes the terminating zero into the byte that std::string keeps after its data.
    std::vsnprintf(message.data(), message.size() + 1, format, args);
    return message;
}

} // namespace

CException::CException(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    m_message = formatMessage(format, args);
    va_end(args);
}

CParseErrorException::CParseErrorException(std::string text, std::size_t position, const char* format, ...)
    : m_text(std::move(text)), m_position(position)
{
    va_list args;
    va_start(args, format);
    m_message = formatMessage(format, args);
    va_end(args);
}

CIOException::CIOException(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    m_message = formatMessage(format, args);
    va_end(args);
}

} // namespace minijson
