/*
 * The functions libfacedet_recorder.so puts in front of the daemon's (it is
 * preloaded with LD_PRELOAD): each calls the real one, found with
 * dlsym(RTLD_NEXT), hands a copy of what passed to the recorder, and returns
 * the real result with errno as the real call left it.
 *
 *   MI_SYS_ChnOutputPortGetBuf  each frame the daemon takes: the two planes it
 *                               copies, 97344 + 48672 bytes. Seen only where
 *                               the MI libraries are shared libraries (the
 *                               camera, camera-qemu): a host build links the
 *                               emulation into the program, past any preload.
 *   sendto                      datagrams to the camera's control process and to UDP 127.0.0.1:1259
 *   recvfrom, __recvfrom_chk    the camera process's replies, the control datagrams
 *
 * Only these calls are exported; everything else in the library is hidden.
 */
#include <dlfcn.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "mi_sys.h"
#include "recorder.h"

#define RECORDER_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using recording::Kind;

// The next definition of `name` after this library's, looked up once.
template <typename Fn>
Fn next_definition(const char *name, std::atomic<void *> &cache) {
    void *fn = cache.load(std::memory_order_acquire);
    if (fn == nullptr) {
        fn = dlsym(RTLD_NEXT, name);
        cache.store(fn, std::memory_order_release);
    }
    return reinterpret_cast<Fn>(fn);
}

bool recorder_on() {
    const recorder::Recorder *r = recorder::the_recorder();
    return r != nullptr && r->state.load(std::memory_order_relaxed) != recorder::kOff;
}

// A datagram the daemon received on fd from `sender`.
void received(int fd, const void *buffer, size_t size, ssize_t result, const sockaddr *sender,
              socklen_t senderLength) {
    sockaddr_storage own;
    socklen_t ownLength = sizeof own;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&own), &ownLength) != 0) {
        ownLength = 0;
    }
    const recorder::Peer peer =
        recorder::received_from(recorder::the_recorder()->settings, reinterpret_cast<const sockaddr *>(&own),
                                ownLength, sender, senderLength);
    if (peer != recorder::Peer::None) {
        recorder::record_datagram(peer == recorder::Peer::Control ? Kind::Control : Kind::CameraReply, buffer,
                                  static_cast<uint32_t>(result), size, static_cast<int32_t>(result), 0);
    }
}

// recvfrom and its fortified form alike: the sender is learnt even when the
// caller does not ask for it.
template <typename Receive>
ssize_t receive(int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *fromLength,
                Receive &&real) {
    if (!recorder_on()) {
        return real(from, fromLength);
    }
    sockaddr_storage own;
    socklen_t ownLength = sizeof own;
    sockaddr *sender = from != nullptr && fromLength != nullptr ? from : reinterpret_cast<sockaddr *>(&own);
    socklen_t *senderLength = from != nullptr && fromLength != nullptr ? fromLength : &ownLength;
    const socklen_t room = *senderLength;
    const ssize_t result = real(sender, senderLength);
    const int error = errno;
    if (result >= 0 && (flags & MSG_PEEK) == 0) {
        // The kernel says how long the address was, even when it had to cut it.
        received(fd, buffer, size, result, sender, std::min(room, *senderLength));
    }
    errno = error;
    return result;
}

__attribute__((constructor)) void recorder_load() {
    recorder::set_up_recorder();
    pthread_atfork(nullptr, nullptr, recorder::recorder_forked);
}

__attribute__((destructor)) void recorder_unload() {
    recorder::finish_recorder();
}

}  // namespace

RECORDER_EXPORT MI_S32 MI_SYS_ChnOutputPortGetBuf(MI_SYS_ChnPort_t *pstChnPort, MI_SYS_BufInfo_t *pstBufInfo,
                                                  MI_SYS_BUF_HANDLE *phHandle) {
    using Fn = MI_S32 (*)(MI_SYS_ChnPort_t *, MI_SYS_BufInfo_t *, MI_SYS_BUF_HANDLE *);
    static std::atomic<void *> cache;
    const Fn real = next_definition<Fn>("MI_SYS_ChnOutputPortGetBuf", cache);
    if (real == nullptr) {
        return -1;  // no MI library in this process: nothing could have called it
    }
    const MI_S32 result = real(pstChnPort, pstBufInfo, phHandle);
    const MI_SYS_FrameData_t *frame = pstBufInfo != nullptr ? &pstBufInfo->stFrameData : nullptr;
    if (result != MI_SUCCESS || frame == nullptr || frame->pVirAddr[0] == nullptr ||
        frame->pVirAddr[1] == nullptr || !recorder_on()) {
        return result;
    }
    const int error = errno;
    recording::FrameFields fields;
    fields.pts = pstBufInfo->u64Pts;
    if (pstChnPort != nullptr) {
        fields.module = static_cast<uint32_t>(pstChnPort->eModId);
        fields.device = pstChnPort->u32DevId;
        fields.channel = pstChnPort->u32ChnId;
        fields.port = pstChnPort->u32PortId;
    }
    fields.width = frame->u16Width;
    fields.height = frame->u16Height;
    fields.stride[0] = frame->u32Stride[0];
    fields.stride[1] = frame->u32Stride[1];
    recorder::record_frame(fields, frame->pVirAddr[0], frame->pVirAddr[1]);
    errno = error;
    return result;
}

RECORDER_EXPORT ssize_t sendto(int fd, const void *buffer, size_t size, int flags, const sockaddr *to,
                               socklen_t toLength) {
    using Fn = ssize_t (*)(int, const void *, size_t, int, const sockaddr *, socklen_t);
    static std::atomic<void *> cache;
    const Fn real = next_definition<Fn>("sendto", cache);
    const ssize_t result = real(fd, buffer, size, flags, to, toLength);
    if (!recorder_on()) {
        return result;
    }
    const int error = errno;
    const recorder::Peer peer = recorder::destination_of(recorder::the_recorder()->settings, to, toLength);
    if (peer != recorder::Peer::None) {
        recorder::record_datagram(peer == recorder::Peer::Camera ? Kind::CameraPacket : Kind::Udp1259Packet,
                                  buffer, static_cast<uint32_t>(size), size, static_cast<int32_t>(result),
                                  result < 0 ? error : 0);
    }
    errno = error;
    return result;
}

RECORDER_EXPORT ssize_t recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *from,
                                 socklen_t *fromLength) {
    using Fn = ssize_t (*)(int, void *, size_t, int, sockaddr *, socklen_t *);
    static std::atomic<void *> cache;
    const Fn real = next_definition<Fn>("recvfrom", cache);
    return receive(fd, buffer, size, flags, from, fromLength, [&](sockaddr *sender, socklen_t *length) {
        return real(fd, buffer, size, flags, sender, length);
    });
}

// What a build with _FORTIFY_SOURCE calls instead of recvfrom.
RECORDER_EXPORT ssize_t __recvfrom_chk(int fd, void *buffer, size_t size, size_t bufferSize, int flags,
                                       sockaddr *from, socklen_t *fromLength) {
    using Fn = ssize_t (*)(int, void *, size_t, size_t, int, sockaddr *, socklen_t *);
    static std::atomic<void *> cache;
    const Fn real = next_definition<Fn>("__recvfrom_chk", cache);
    return receive(fd, buffer, size, flags, from, fromLength, [&](sockaddr *sender, socklen_t *length) {
        return real(fd, buffer, size, bufferSize, flags, sender, length);
    });
}
