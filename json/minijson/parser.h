#pragma once

#include "minijson/entity.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace minijson {

// A strict recursive-descent parser that reads a whole JSON text at once.
//
// The top level must be an object or an array. Numbers are runs of '0'-'9' and '.' with an
// optional leading '-' (no exponent, no '+'), kept as text. Every failure throws
// CParseErrorException with the input and the byte position of the problem:
//   "Empty input"                    nothing but white space (position: the input's length)
//   "Syntax error"                   the top level is neither '{' nor '['
//   "Extra bytes at end of json"     something follows the top-level value
//   "Syntax error: Expected '%s' at or after position %d"
//                                    a required ':', ',', '}', ']', '"' or a value is missing
//   "Closing \" not found"           a string runs to the end of the input (position: its quote)
//   "Invalid \u escaping"            \u not followed by four hex digits (position: the string's quote)
//   "Nesting too deep"               more than kMaxDepth nested containers (position: the bracket)
// The depth limit keeps hostile input from exhausting the stack. A partial tree is freed.
class CParser
{
public:
    static constexpr int kMaxDepth = 512;

    // The tree belongs to the caller. A negative length means `text` is zero-terminated.
    static std::unique_ptr<CEntity> Parse(const char* text, std::ptrdiff_t length = -1);
    static std::unique_ptr<CEntity> Parse(std::string_view text);
    // Reads the whole file first; file errors throw CIOException.
    static std::unique_ptr<CEntity> ParseFromFile(const std::string& path);
};

} // namespace minijson
