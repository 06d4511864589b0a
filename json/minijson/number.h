#pragma once

#include "minijson/entity.h"

#include <string>
#include <string_view>

namespace minijson {

// A number kept as its text, exactly as parsed or as printed by a setter, so that a value passes
// through the service unchanged and is only converted when somebody asks for it.
//
// A valid text is non-empty, may start with '-', and otherwise holds only '0'-'9' and '.'.
// The parser accepts every such run, so texts like "-" or "1.2.3" can occur; the conversions
// never fail on them:
// - ValueInt() reads the integer part ("12.7" -> 12, "-3.9" -> -3), saturates at the int range,
//   and gives 0 when there is no leading digit ("-", ".5", "-.5").
// - ValueDouble()/ValueFloat() read the longest well-formed prefix ("1.2.3" -> 1.2, ".5" -> 0.5),
//   give 0 when there is none ("-", "."), and +/-infinity beyond the type's range.
// The conversions do not depend on the C locale.
class CNumber final : public CEntity
{
public:
    CNumber() : CEntity(EKind::Number), m_text(1, '0') {}
    // Throws CException "Invalid number text '%s'" for a text that is not valid (see above).
    explicit CNumber(std::string_view text);

    const std::string& Text() const noexcept { return m_text; }
    void SetText(std::string_view text);
    static bool IsValidText(std::string_view text) noexcept;

    int ValueInt() const noexcept;
    float ValueFloat() const noexcept;
    double ValueDouble() const noexcept;

    // Store the shortest fixed-point text that reads back to the same value (never an exponent,
    // which the parser would not accept). NaN and infinity are stored as "0".
    void SetInt(int value);
    void SetFloat(float value);
    void SetDouble(double value);

    std::unique_ptr<CEntity> Copy() const override;

private:
    friend struct detail::TreeAccess;

    struct TrustedText
    {
    };
    // For the parser, which has already checked the text.
    CNumber(std::string_view text, TrustedText) : CEntity(EKind::Number), m_text(text) {}

    std::string m_text;
};

} // namespace minijson
