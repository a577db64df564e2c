/*
 * The ports of the emulated VPE channels: their mode, enabling, depths and the
 * descriptors that poll readable while a frame is queued. Every call takes the
 * pipeline's mutex.
 */
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

#include "vpe_pipeline.h"

namespace host {

// ---- ports ----

int Pipeline::get_port_mode(int chn, int port, MI_VPE_PortMode_t *mode, MI_S32 *faultCode) {
    std::lock_guard<std::mutex> lk(mu_);
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    if (config_.faults.portmodeFail && !portmodeFaultUsed_) {
        portmodeFaultUsed_ = true;
        *faultCode = config_.faults.portmodeFailCode;
        return -1;
    }
    if (!mode) {
        return E_MI_ERR_NULL_PTR;
    }
    if (const int err = check_port(chn, port)) {
        return err;
    }
    *mode = channels_[chn].ports[port].mode;
    return 0;
}

int Pipeline::set_port_mode(int chn, int port, const MI_VPE_PortMode_t &mode) {
    std::lock_guard<std::mutex> lk(mu_);
    if (const int err = check_port(chn, port)) {
        return err;
    }
    Port &p = channels_[chn].ports[port];
    if (p.enabled) {
        return E_MI_ERR_NOT_PERM;
    }
    if (mode.ePixelFormat != E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420 ||
        mode.eCompressMode != E_MI_SYS_COMPRESS_MODE_NONE) {
        return E_MI_ERR_NOT_SUPPORT;
    }
    const int w = mode.u16Width;
    const int h = mode.u16Height;
    // NV12 chroma is subsampled 2x2, so odd sizes cannot be represented.
    if (w == 0 || h == 0 || w % 2 != 0 || h % 2 != 0 || w > kMaxPortWidth || h > kMaxPortHeight) {
        return E_MI_ERR_ILLEGAL_PARAM;
    }
    p.mode = mode;
    return 0;
}

int Pipeline::enable_port(int chn, int port) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_port(chn, port)) {
            return err;
        }
        Port &p = channels_[chn].ports[port];
        if (p.enabled) {
            return 0;
        }
        if (p.mode.u16Width == 0 || p.mode.u16Height == 0) {
            return E_MI_ERR_NOT_CONFIG;
        }
        p.enabled = true;
        ++p.generation;
    }
    wake_.notify_all();
    return 0;
}

int Pipeline::disable_port(int chn, int port) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_port(chn, port)) {
            return err;
        }
        Port &p = channels_[chn].ports[port];
        if (!p.enabled) {
            return 0;
        }
        drop_queued(chn, port);
        p.enabled = false;
        ++p.generation;
    }
    wake_.notify_all();
    return 0;
}

int Pipeline::set_depth(const MI_SYS_ChnPort_t &cp, MI_U32 userDepth, MI_U32 queueDepth) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_chn_port(cp)) {
            return err;
        }
        if (userDepth > kMaxPortDepth || queueDepth > kMaxPortDepth) {
            return E_MI_ERR_ILLEGAL_PARAM;
        }
        const int chn = static_cast<int>(cp.u32ChnId);
        const int port = static_cast<int>(cp.u32PortId);
        Port &p = channels_[chn].ports[port];
        p.userDepth = userDepth;
        p.queueDepth = queueDepth;
        if (!fed(chn, port)) {
            drop_queued(chn, port);  // user depth 0: the port delivers nothing
            ++p.generation;
        } else {
            while (p.queue.size() > queueDepth) {
                drop_oldest(chn, port);
            }
        }
    }
    wake_.notify_all();
    return 0;
}

// ---- descriptors ----

int Pipeline::get_fd(const MI_SYS_ChnPort_t &cp, MI_S32 *fd) {
    std::lock_guard<std::mutex> lk(mu_);
    if (const int err = check_chn_port(cp)) {
        return err;
    }
    Port &p = channels_[cp.u32ChnId].ports[cp.u32PortId];
    if (!p.enabled) {
        return E_MI_ERR_NOT_ENABLE;
    }
    if (config_.faults.getfdFail) {
        return E_MI_ERR_FAILED;
    }
    const int efd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (efd < 0) {
        return E_MI_ERR_NOMEM;
    }
    p.fds.push_back(efd);
    if (!p.queue.empty()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(efd, &one, sizeof one);
    }
    *fd = efd;
    return 0;
}

int Pipeline::close_fd(MI_S32 fd) {
    std::lock_guard<std::mutex> lk(mu_);
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    for (Channel &c : channels_) {
        for (Port &p : c.ports) {
            auto it = std::find(p.fds.begin(), p.fds.end(), fd);
            if (it != p.fds.end()) {
                p.fds.erase(it);
                ::close(fd);
                return 0;
            }
        }
    }
    return E_MI_ERR_ILLEGAL_PARAM;  // not ours: never close a descriptor we did not create
}

}  // namespace host
