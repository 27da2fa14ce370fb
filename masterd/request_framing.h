/// Where the parts of a request end, taken strictly.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace masterd {

/// Watches the bytes of one request on their way to the HTTP library, which is lenient: it skips header lines
/// that it does not understand, and takes a chunk that ends wrongly for the last one. Where it and another
/// program on the way differ, there is room for a request inside a request.
///
/// Refused in a head and in the marks of chunks: a line end other than CR LF, and control characters. In a
/// head: a header line that continues the one before, has no colon, or whose name is no token (a blank before
/// the colon). In a body whose only coding is "chunked": a size that is not 1 to 8 hexadecimal digits, a
/// chunk that ends elsewhere, and anything but an empty line after the last one. Bodies of any other kind
/// pass.
class RequestFraming {
public:
    /// Takes the next bytes. False from the first one on that may not stand where it does.
    [[nodiscard]] bool take(std::string_view bytes);

    /// Bytes of the head, its empty line included.
    [[nodiscard]] std::size_t headBytes() const { return headBytes_; }
    /// Bytes after the head: the marks of chunks count too.
    [[nodiscard]] std::size_t bodyBytes() const { return bodyBytes_; }

private:
    /// What the next bytes belong to.
    enum class Part { requestLine, header, body, chunkSize, chunk, chunkEnd, lastLine, nothing, fault };

    [[nodiscard]] bool isHead() const { return part_ == Part::requestLine || part_ == Part::header; }
    std::size_t takeBody(std::size_t size);
    bool takeOfLine(char c);
    Part partAfterLine();
    Part partAfterHeader();
    Part partAfterChunkSize();

    Part part_ = Part::requestLine;
    std::string line_; ///< what there is of the line that is being read, its CR included
    bool isChunked_ = false;
    std::size_t chunkLeft_ = 0;
    std::size_t headBytes_ = 0;
    std::size_t bodyBytes_ = 0;
};

} // namespace masterd
