// Where `txscan apply` writes: standard output, or a file that appears only
// when the run succeeds (written under a temporary name beside it, renamed at
// the end, removed on failure or on an interrupting signal).
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace txcli {

class OutputFile {
public:
    // "-" is standard output; a path that names a device or a pipe is
    // written directly. Throws std::runtime_error when the file cannot be made.
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Throws std::runtime_error (disk full, closed pipe, ...).
    void write(const char* data, std::size_t size);
    void commit();

private:
    std::string path_;
    std::string temporaryPath_;
    std::FILE* file_ = nullptr;
    bool committed_ = false;
};

}  // namespace txcli
