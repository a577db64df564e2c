// Captures what the code under test writes to stdout or stderr (the file descriptor).
#ifndef FACEDET_TEST_OUTPUT_CAPTURE_H
#define FACEDET_TEST_OUTPUT_CAPTURE_H

#include <cstdio>
#include <string>

class OutputCapture {
  public:
    // fd 1 (stdout) or 2 (stderr).
    explicit OutputCapture(int fd = 1);
    ~OutputCapture();
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;

    // Stops capturing (once) and returns everything written meanwhile.
    std::string finish();

  private:
    int fd_;
    int saved_ = -1;
    FILE *sink_ = nullptr;
    std::string text_;
    bool done_ = false;
};

#endif
