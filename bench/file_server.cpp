// A master server as far as reading all hosts goes, and as fast as can be: every GET is answered with one
// file, so that what is timed against it is the client. The file may be exchanged between two requests.
//
// usage: file-server ADDRESS SERVER_PEM AUTHORITY_PEM FILE

#include "bench/failure.h"
#include "bench/https_client.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::size_t WRITE_BYTES = std::size_t{1} << 20;

/// A file in memory for as long as a reply takes.
class MappedFile {
public:
    explicit MappedFile(const std::string& path)
    {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (file < 0 || fstat(file, &status) != 0)
            throw bench::systemFailure(path);
        size_ = static_cast<std::size_t>(status.st_size);
        data_ = mmap(nullptr, size_, PROT_READ, MAP_SHARED | MAP_POPULATE, file, 0);
        close(file);
        if (data_ == MAP_FAILED)
            throw bench::systemFailure(path);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile() { munmap(data_, size_); }

    [[nodiscard]] const char* data() const { return static_cast<const char*>(data_); }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    void* data_;
    std::size_t size_;
};

bool writeAll(SSL& stream, const char* data, std::size_t size)
{
    for (std::size_t done = 0; done < size;) {
        std::size_t written = 0;
        if (SSL_write_ex(&stream, data + done, std::min(WRITE_BYTES, size - done), &written) != 1)
            return false;
        done += written;
    }
    return true;
}

/// Reads to the end of a request's head; false when the client has gone. A GET has no body.
bool readHead(SSL& stream)
{
    std::string head;
    std::array<char, 4096> part{};
    while (head.find("\r\n\r\n") == std::string::npos) {
        std::size_t got = 0;
        if (SSL_read_ex(&stream, part.data(), part.size(), &got) != 1)
            return false;
        head.append(part.data(), got);
    }
    return true;
}

void serve(SSL& stream, const std::string& path)
{
    while (readHead(stream)) {
        const MappedFile file(path);
        const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                                 std::to_string(file.size()) + "\r\n\r\n";
        if (!writeAll(stream, head.data(), head.size()) || !writeAll(stream, file.data(), file.size()))
            return;
    }
}

void serveSocket(SSL_CTX& context, int socket, const std::string& path)
{
    const bench::TlsStream stream(SSL_new(&context));
    try {
        if (SSL_set_fd(stream.get(), socket) == 1 && SSL_accept(stream.get()) == 1)
            serve(*stream, path);
    } catch (const bench::Failure& failure) {
        std::fprintf(stderr, "file-server: %s\n", failure.what());
    }
    SSL_shutdown(stream.get());
}

} // namespace

int main(int argc, char* argv[])
{
    return bench::runProgram("file-server", [&] {
        if (argc != 5)
            throw bench::Failure("usage: file-server ADDRESS SERVER_PEM AUTHORITY_PEM FILE");
        const bench::TlsContext context = bench::makeServerContext(argv[2], argv[3]);
        const std::string path = argv[4];
        const bench::Socket listener = bench::listenOn(argv[1]);
        for (;;) {
            bench::Socket socket(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (socket.get() >= 0)
                std::thread([&, owned = std::move(socket)] {
                    serveSocket(*context, owned.get(), path);
                }).detach();
        }
    });
}
