#include "minijson/number.h"

#include "minijson/exceptions.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace minijson {
namespace {

// Large enough for the longest fixed-point form of any double (the smallest subnormal
// has more than 320 digits after the point).
constexpr std::size_t kPrintBufferSize = 512;

template <typename Float> Float readFloatPrefix(const std::string& text) noexcept
{
    Float value = 0;
    const char* first = text.data();
    const char* last = first + text.size();
    const auto [end, error] = std::from_chars(first, last, value, std::chars_format::fixed);
    (void)end;
    if (error == std::errc::result_out_of_range) {
        const Float huge = std::numeric_limits<Float>::infinity();
        return text[0] == '-' ? -huge : huge;
    }
    return error == std::errc() ? value : Float(0);
}

template <typename Float> std::string printFloat(Float value)
{
    if (!std::isfinite(value))
        return std::string(1, '0');
    char buffer[kPrintBufferSize];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
    return std::string(buffer, result.ptr);
}

} // namespace

CNumber::CNumber(std::string_view text) : CEntity(EKind::Number)
{
    SetText(text);
}

bool CNumber::IsValidText(std::string_view text) noexcept
{
    if (text.empty())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (!((c >= '0' && c <= '9') || c == '.' || (c == '-' && i == 0)))
            return false;
    }
    return true;
}

void CNumber::SetText(std::string_view text)
{
    if (!IsValidText(text))
        throw CException("Invalid number text '%.*s'", static_cast<int>(text.size()), text.data());
    m_text.assign(text);
}

int CNumber::ValueInt() const noexcept
{
    const char* first = m_text.data();
    const char* last = first + m_text.size();
    int value = 0;
    const auto [end, error] = std::from_chars(first, last, value);
    (void)end;
    if (error == std::errc::result_out_of_range)
        return m_text[0] == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    return error == std::errc() ? value : 0;
}

float CNumber::ValueFloat() const noexcept
{
    return readFloatPrefix<float>(m_text);
}

double CNumber::ValueDouble() const noexcept
{
    return readFloatPrefix<double>(m_text);
}

void CNumber::SetInt(int value)
{
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    m_text.assign(buffer, result.ptr);
}

void CNumber::SetFloat(float value)
{
    m_text = printFloat(value);
}

void CNumber::SetDouble(double value)
{
    m_text = printFloat(value);
}

std::unique_ptr<CEntity> CNumber::Copy() const
{
    auto copy = std::make_unique<CNumber>();
    copy->m_text = m_text;
    return copy;
}

} // namespace minijson
