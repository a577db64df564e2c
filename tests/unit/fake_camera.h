// A stand-in for the camera's control process inside a test: binds the
// feature-camera path and answers every packet with what `answer` returns.
#ifndef FACEDET_TEST_FAKE_CAMERA_H
#define FACEDET_TEST_FAKE_CAMERA_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FakeCamera {
  public:
    using Bytes = std::vector<uint8_t>;
    // `answer` gets each packet; an empty result sends nothing.
    FakeCamera(const std::string &path, std::function<Bytes(const Bytes &)> answer);
    ~FakeCamera();  // stops and removes the path

    std::vector<Bytes> packets() const;
    // Sends `bytes` to the address the last packet came from.
    bool send_to_last_sender(const Bytes &bytes);

  private:
    void run();

    std::string path_;
    std::function<Bytes(const Bytes &)> answer_;
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    mutable std::mutex lock_;
    std::vector<Bytes> packets_;
    std::vector<uint8_t> lastSender_;  // raw address record
    std::thread thread_;
};

#endif
