#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "cli.h"
#include "progress.h"

namespace tz3cli {
namespace {

const uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

std::string ErrnoText() {
    return std::strerror(errno);
}

// Closes a descriptor and removes a temporary file unless the file has been committed.
class TempFile {
  public:
    TempFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() {
        if (fd_ >= 0) close(fd_);
        if (!committed_) unlink(path_.c_str());
    }
    int Fd() const { return fd_; }
    const std::string &Path() const { return path_; }
    // Closes the descriptor, reporting whether the data reached the file.
    bool Close() {
        const int fd = fd_;
        fd_ = -1;
        return close(fd) == 0;
    }
    void Commit() { committed_ = true; }

  private:
    int fd_;
    std::string path_;
    bool committed_ = false;
};

std::string LowerExtension(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot);
    for (char &ch : ext) {
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
    }
    return ext;
}

// A new file gets the permissions an ordinary one would: 0666 less the umask.
mode_t NewFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return static_cast<mode_t>(0666 & ~mask);
}

}  // namespace

LoadedImage LoadImageFile(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw Failure(path + ": cannot open (" + ErrnoText() + ")");
    std::vector<uint8_t> bytes;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        throw Failure(path + ": not a regular file");
    }
    // No image that fits in one block comes from a bigger file than the block limit allows.
    if (static_cast<uint64_t>(st.st_size) > kMaxBlockBytes) {
        close(fd);
        throw Failure(path + ": file too large");
    }
    bytes.resize(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = read(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const std::string reason = n < 0 ? ErrnoText() : "file shrank while being read";
            close(fd);
            throw Failure(path + ": cannot read (" + reason + ")");
        }
        done += static_cast<size_t>(n);
    }
    close(fd);

    if (bytes.size() >= 2 && bytes[0] == 'B' && bytes[1] == 'M')
        return DecodeBmp(bytes.data(), bytes.size(), path);
    if (bytes.size() >= sizeof kPngSignature &&
        std::memcmp(bytes.data(), kPngSignature, sizeof kPngSignature) == 0) {
        return DecodePng(bytes.data(), bytes.size(), path);
    }
    throw Failure(path + ": not a BMP or PNG file");
}

FileFormat OutputFormatFor(const std::string &path) {
    const std::string ext = LowerExtension(path);
    if (ext == ".bmp") return FileFormat::kBmp;
    if (ext == ".png") return FileFormat::kPng;
    throw UsageError("output file " + path + " must end in .bmp or .png");
}

void SaveImageFile(const std::string &path, DibHandle dib) {
    const FileFormat format = OutputFormatFor(path);
    std::vector<uint8_t> bytes;
    try {
        bytes = format == FileFormat::kBmp ? EncodeBmp(dib) : EncodePng(dib);
    } catch (const Failure &failure) {
        throw Failure(path + ": " + failure.what(), failure.ExitCode());
    }
    WriteFileAtomically(path, bytes);
}

void WriteFileAtomically(const std::string &path, const std::vector<uint8_t> &bytes) {
    // Beside the output, so that the rename stays on one file system.
    std::string pattern = path + ".tmpXXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd < 0) throw Failure(path + ": cannot create (" + ErrnoText() + ")");
    TempFile temp(fd, pattern);
    fchmod(temp.Fd(), NewFileMode());
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(temp.Fd(), bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw Failure(path + ": cannot write (" + (n < 0 ? ErrnoText() : "no progress") + ")");
        done += static_cast<size_t>(n);
    }
    if (fsync(temp.Fd()) != 0 && errno != EINVAL)
        throw Failure(path + ": cannot write (" + ErrnoText() + ")");
    if (!temp.Close()) throw Failure(path + ": cannot write (" + ErrnoText() + ")");
    if (CancelRequested()) throw Failure(path + ": cancelled, not written", kExitCancelled);
    if (rename(temp.Path().c_str(), path.c_str()) != 0) {
        throw Failure(path + ": cannot replace (" + ErrnoText() + ")");
    }
    temp.Commit();
}

}  // namespace tz3cli
