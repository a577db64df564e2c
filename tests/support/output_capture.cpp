#include "output_capture.h"

#include <unistd.h>

#include <stdexcept>

OutputCapture::OutputCapture(int fd) : fd_(fd) {
    fflush(fd_ == 1 ? stdout : stderr);
    sink_ = tmpfile();
    saved_ = dup(fd_);
    if (sink_ == nullptr || saved_ < 0 || dup2(fileno(sink_), fd_) < 0) {
        throw std::runtime_error("cannot redirect output for capture");
    }
}

OutputCapture::~OutputCapture() {
    finish();
}

std::string OutputCapture::finish() {
    if (done_) {
        return text_;
    }
    done_ = true;
    fflush(fd_ == 1 ? stdout : stderr);
    dup2(saved_, fd_);
    close(saved_);
    rewind(sink_);
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, sink_)) > 0) {
        text_.append(chunk, n);
    }
    fclose(sink_);
    return text_;
}
