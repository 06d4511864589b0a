#pragma once

#include <string>
#include <string_view>

// Whole-file reading and writing for the parser and the writer; failures throw CIOException.
namespace minijson::detail {

// Throws "Failed to open file %s" or "Failed to read %d bytes from file (read=%d)".
std::string ReadWholeFile(const std::string& path);
// Throws "Failed to open file for writing" or "Failed to write all bytes to file".
void WriteWholeFile(const std::string& path, std::string_view data);

} // namespace minijson::detail
