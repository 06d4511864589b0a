#include "minijson/file_io.h"

#include "minijson/exceptions.h"

#include <climits>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace minijson::detail {
namespace {

struct FileCloser
{
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// The size of a regular file as a hint for the buffer; 0 for anything else (directories, pipes)
// and for files of the kernel, which report no size.
std::size_t sizeHint(const std::string& path)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : static_cast<std::size_t>(size);
}

int clampToInt(std::size_t value)
{
    return value > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(value);
}

} // namespace

std::string ReadWholeFile(const std::string& path)
{
    const FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file)
        throw CIOException("Failed to open file %s", path.c_str());

    // Read to the end rather than trusting the size, which may change or be unknown.
    const std::size_t expected = sizeHint(path);
    // One spare byte lets the first read already meet the end of the file.
    std::string content(expected > 0 ? expected + 1 : 4096, '\0');
    std::size_t total = 0;
    for (;;) {
        total += std::fread(content.data() + total, 1, content.size() - total, file.get());
        if (total < content.size())
            break;
        content.resize(content.size() * 2);
    }
    if (std::ferror(file.get()))
        throw CIOException("Failed to read %d bytes from file (read=%d)", clampToInt(expected),
                           clampToInt(total));
    content.resize(total);
    return content;
}

void WriteWholeFile(const std::string& path, std::string_view data)
{
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file)
        throw CIOException("Failed to open file for writing");
    const std::size_t written = std::fwrite(data.data(), 1, data.size(), file.get());
    // fclose flushes; a failure there means the bytes did not all reach the file either.
    const bool closed = std::fclose(file.release()) == 0;
    if (written != data.size() || !closed)
        throw CIOException("Failed to write all bytes to file");
}

} // namespace minijson::detail
