/*
 * Recorded pace: hands a recording's control datagrams to the daemon's
 * control socket, as the camera process sent them on the camera, and waits
 * until the daemon has taken each one, so that the frame handed out next is
 * handled under the command it brought.
 *
 * The daemon's socket is in this process: it has taken a datagram once its
 * receive queue is empty again. Found by its bound path among this process's
 * descriptors, never by number.
 */
#ifndef FACEDET_HOST_CONTROL_DELIVERY_H
#define FACEDET_HOST_CONTROL_DELIVERY_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

// How long a delivery waits for the daemon to take the datagram: a daemon
// whose control thread has ended must not stop the frames.
constexpr int kControlTakeWaitMs = 1000;

class ControlDelivery {
  public:
    explicit ControlDelivery(std::string socketPath) : path_(std::move(socketPath)) {}
    ~ControlDelivery();
    ControlDelivery(const ControlDelivery &) = delete;
    ControlDelivery &operator=(const ControlDelivery &) = delete;

    // Sends the datagram and waits until the daemon has taken it. False when
    // it could not be sent or was not taken in time (one line on stderr the
    // first time); the frames go on either way.
    bool deliver(const uint8_t *bytes, size_t size);

    // Datagrams sent and datagrams the daemon took in time, for tests.
    uint64_t sent() const { return sent_; }
    uint64_t taken() const { return taken_; }

  private:
    bool bound_here(int fd) const;
    int find_receiver() const;
    bool wait_until_taken();
    void complain(const std::string &why);

    std::string path_;
    int fd_ = -1;
    int receiver_ = -1;
    bool complained_ = false;
    uint64_t sent_ = 0, taken_ = 0;
};

}  // namespace host

#endif
