// The temporary file's name is also kept in a fixed buffer for the signal
// handler, which may only unlink it and die the default way.
#include "cli/apply/output_file.h"

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace txcli {

namespace {

char pendingTemporary[4096];
const int kInterruptingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

void removeTemporaryAndDie(int signal) {
    if (pendingTemporary[0] != '\0') unlink(pendingTemporary);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

std::runtime_error failure(const std::string& what, const std::string& path) {
    return std::runtime_error(what + " " + path + ": " + std::strerror(errno));
}

// A run killed outright (SIGKILL, a power cut) leaves its temporary file.
// The name holds the writer's process id, so the next run removes only the
// ones whose writer is gone: never a file that a live run is writing.
void removeStaleTemporaries(const std::string& path) {
    glob_t found{};
    if (glob((path + ".partial-*-??????").c_str(), GLOB_NOSORT, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc; ++i) {
            const std::string name = found.gl_pathv[i];
            const std::size_t at = path.size() + std::strlen(".partial-");
            char* end = nullptr;
            const long pid = std::strtol(name.c_str() + at, &end, 10);
            if (pid <= 0 || end == name.c_str() + at || *end != '-') continue;
            if (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) unlink(name.c_str());
        }
    }
    globfree(&found);
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
    if (path == "-") {
        file_ = stdout;
        return;
    }
    // A device or a pipe (/dev/null, a named pipe) is written as it is:
    // renaming over it would replace it.
    struct stat existing {};
    if (stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
        file_ = std::fopen(path.c_str(), "wb");
        if (file_ == nullptr) throw failure("cannot write", path);
        return;
    }
    removeStaleTemporaries(path);
    std::string name = path + ".partial-" + std::to_string(getpid()) + "-XXXXXX";
    if (name.size() >= sizeof pendingTemporary) throw std::runtime_error("output path too long: " + path);
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0) throw failure("cannot create a file beside", path);
    // mkstemp makes the file private; the finished output gets the usual mode.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor, 0666 & ~mask);
    file_ = fdopen(descriptor, "wb");
    if (file_ == nullptr) {
        close(descriptor);
        unlink(name.c_str());
        throw failure("cannot write", name);
    }
    temporaryPath_ = name;
    std::memcpy(pendingTemporary, name.c_str(), name.size() + 1);
    for (const int signal : kInterruptingSignals) std::signal(signal, removeTemporaryAndDie);
}

OutputFile::~OutputFile() {
    if (temporaryPath_.empty()) {
        if (file_ != nullptr && file_ != stdout) std::fclose(file_);
        return;
    }
    if (committed_) return;
    std::fclose(file_);
    pendingTemporary[0] = '\0';
    unlink(temporaryPath_.c_str());
}

void OutputFile::write(const char* data, std::size_t size) {
    if (size != 0 && std::fwrite(data, 1, size, file_) != size) {
        throw failure("cannot write", temporaryPath_.empty() ? std::string("the output") : path_);
    }
}

void OutputFile::commit() {
    if (temporaryPath_.empty()) {
        if (std::fflush(file_) != 0) throw failure("cannot write", path_);
        return;
    }
    const bool flushed = std::fflush(file_) == 0 && fsync(fileno(file_)) == 0;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!flushed || !closed) {
        const int error = errno;
        pendingTemporary[0] = '\0';
        unlink(temporaryPath_.c_str());
        committed_ = true;
        errno = error;
        throw failure("cannot write", path_);
    }
    if (std::rename(temporaryPath_.c_str(), path_.c_str()) != 0) {
        const int error = errno;
        unlink(temporaryPath_.c_str());
        pendingTemporary[0] = '\0';
        committed_ = true;
        errno = error;
        throw failure("cannot rename the finished output to", path_);
    }
    pendingTemporary[0] = '\0';
    committed_ = true;
}

}  // namespace txcli
