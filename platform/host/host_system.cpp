/*
 * MI_SYS_Init and MI_SYS_Exit of the emulation, and the test hooks. Init
 * never fails for want of a frame source: like a camera whose sensor set-up
 * failed, the system comes up but VPE channel 0 does not exist, and the one
 * line on stderr says why.
 */
#include "host_system.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "host_platform.h"
#include "host_time.h"

namespace host {
namespace {

void report_no_channel(const std::string &why) {
    std::fprintf(stderr, "host platform: %s: VPE channel 0 has no frame source\n", why.c_str());
}

// Opens what the configuration names. Returns null (after one line on
// stderr) when channel 0 cannot have a source.
std::shared_ptr<Pipeline> build_pipeline(const std::optional<Config> &hookConfig) {
    Config cfg;
    std::string error;
    if (hookConfig) {
        cfg = *hookConfig;
    } else if (!config_from_env(&cfg, &error)) {
        report_no_channel(error);
        return std::make_shared<Pipeline>(Config(), nullptr, nullptr);
    }
    if (cfg.source.empty()) {
        report_no_channel("FACEDET_SOURCE is not set");
        return std::make_shared<Pipeline>(cfg, nullptr, nullptr);
    }
    std::unique_ptr<FrameSource> source = open_frame_source(cfg.source, &error);
    if (!source) {
        std::fprintf(stderr, "host platform: cannot open FACEDET_SOURCE '%s': %s\n", cfg.source.c_str(),
                     error.c_str());
        return std::make_shared<Pipeline>(cfg, nullptr, nullptr);
    }
    std::FILE *log = nullptr;
    if (!cfg.frameLogPath.empty()) {
        log = std::fopen(cfg.frameLogPath.c_str(), "we");
        if (!log) {
            std::fprintf(stderr, "host platform: cannot open FACEDET_FRAME_LOG '%s': %s\n",
                         cfg.frameLogPath.c_str(), std::strerror(errno));
            return std::make_shared<Pipeline>(cfg, nullptr, nullptr);
        }
    }
    return std::make_shared<Pipeline>(cfg, std::move(source), log);
}

}  // namespace

System &system_state() {
    static System *const s = new System();
    return *s;
}

std::shared_ptr<Pipeline> current_pipeline() {
    System &s = system_state();
    std::lock_guard<std::mutex> lk(s.mu);
    return s.initialised ? s.pipeline : nullptr;
}

MI_U64 current_pts() {
    const std::shared_ptr<Pipeline> p = current_pipeline();
    return p ? p->clock_read() : monotonic_us();
}

MI_S32 system_init() {
    keep_program_sleep();
    System &s = system_state();
    std::lock_guard<std::mutex> life(s.lifecycle);
    std::optional<Config> hookConfig;
    {
        std::lock_guard<std::mutex> lk(s.mu);
        if (s.initialised) {
            return MI_SYS_ERR(E_MI_ERR_EXIST);
        }
        hookConfig = std::move(s.nextConfig);
        s.nextConfig.reset();
    }
    // Opening a video may take a while: not under mu.
    std::shared_ptr<Pipeline> pipeline = build_pipeline(hookConfig);
    std::lock_guard<std::mutex> lk(s.mu);
    s.pipeline = std::move(pipeline);
    s.vif = VifState();
    s.venc = VencState();
    s.rgn.initialised = false;
    s.rgn.havePalette = false;
    s.initialised = true;
    return MI_SUCCESS;
}

MI_S32 system_exit() {
    System &s = system_state();
    std::lock_guard<std::mutex> life(s.lifecycle);
    std::shared_ptr<Pipeline> pipeline;
    {
        std::lock_guard<std::mutex> lk(s.mu);
        if (!s.initialised) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        s.initialised = false;
        pipeline = std::move(s.pipeline);
        s.vif = VifState();
        s.venc = VencState();
        s.rgn.initialised = false;
    }
    // Joins the producer: not under mu, which MI calls in flight may need.
    pipeline->shutdown();
    return MI_SUCCESS;
}

void use_config_for_next_init(const Config &cfg) {
    System &s = system_state();
    std::lock_guard<std::mutex> lk(s.mu);
    s.nextConfig = cfg;
}

bool rgn_palette(MI_RGN_PaletteTable_t *out) {
    System &s = system_state();
    std::lock_guard<std::mutex> lk(s.mu);
    if (!s.rgn.havePalette || !out) {
        return false;
    }
    *out = s.rgn.palette;
    return true;
}

}  // namespace host
