#pragma once

#include <string>
#include <string_view>

namespace minijson {

class CEntity;

// Prints a tree as JSON text, compact or indented. No blank is ever written around ':' or ','.
//
// Indented form: a line feed follows an opening brace or bracket and every member or element, and
// each member or element starts with `indent` repeated to its nesting level:
//     {
//       "on":{
//         "on":true
//       },
//       "xy":[
//         0.3,
//         0.4
//       ]
//     }
// Empty containers stay "{}" and "[]" in both forms.
class CWriter
{
public:
    explicit CWriter(bool indented = false, std::string indent = "  ")
        : m_indented(indented), m_indent(std::move(indent))
    {
    }

    std::string Write(const CEntity& entity, int level = 0) const;
    // Appends to `out`, so that one buffer can serve many writes.
    void AppendTo(std::string& out, const CEntity& entity, int level = 0) const;
    // Throws CIOException "Failed to open file for writing" / "Failed to write all bytes to file".
    void WriteToFile(const std::string& path, const CEntity& entity) const;

    // Backslash before '"', '\' and '/'; \b \f \n \r \t for those control bytes; every other byte
    // (UTF-8 included) is copied as it is.
    static std::string EscapeString(std::string_view text);
    static void AppendEscaped(std::string& out, std::string_view text);

private:
    void appendValue(std::string& out, const CEntity& entity, int level) const;
    void appendObject(std::string& out, const CEntity& entity, int level) const;
    void appendArray(std::string& out, const CEntity& entity, int level) const;
    void appendLineStart(std::string& out, int level) const;

    bool m_indented;
    std::string m_indent;
};

} // namespace minijson
