#include "video_encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <cmath>

namespace replay {

struct VideoEncoder::Av {
    AVFormatContext *format = nullptr;
    AVCodecContext *codec = nullptr;
    AVStream *stream = nullptr;
    AVFrame *frame = nullptr;
    AVPacket *packet = nullptr;
    SwsContext *sws = nullptr;
    int64_t next = 0;
    bool headerWritten = false;
    bool finished = false;

    ~Av() {
        sws_freeContext(sws);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&codec);
        if (format != nullptr) {
            if (format->pb != nullptr) {
                avio_closep(&format->pb);
            }
            avformat_free_context(format);
        }
    }
};

namespace {

// H.264 through x264 at its "ultrafast" preset, else any H.264 encoder, else MPEG-4 part 2.
const AVCodec *choose_encoder() {
    if (const AVCodec *x264 = avcodec_find_encoder_by_name("libx264")) {
        return x264;
    }
    if (const AVCodec *h264 = avcodec_find_encoder(AV_CODEC_ID_H264)) {
        return h264;
    }
    return avcodec_find_encoder(AV_CODEC_ID_MPEG4);
}

}  // namespace

VideoEncoder::VideoEncoder(const std::string &path, cv::Size size, double fps) : av_(std::make_unique<Av>()) {
    if (!open(path, size, fps)) {
        av_->finished = true;  // nothing to finish
    }
}

VideoEncoder::~VideoEncoder() {
    if (!av_->finished) {
        finish();
    }
}

bool VideoEncoder::open(const std::string &path, cv::Size size, double fps) {
    // The encoder's statistics are not the replay's business.
    av_log_set_level(AV_LOG_ERROR);
    Av *av = av_.get();
    std::string *error = &error_;
    const AVCodec *codec = choose_encoder();
    if (codec == nullptr) {
        *error = "FFmpeg has neither an H.264 nor an MPEG-4 encoder";
        return false;
    }
    if (avformat_alloc_output_context2(&av->format, nullptr, "mp4", path.c_str()) < 0) {
        *error = "FFmpeg cannot write MP4 files";
        return false;
    }
    av->stream = avformat_new_stream(av->format, nullptr);
    av->codec = avcodec_alloc_context3(codec);
    av->frame = av_frame_alloc();
    av->packet = av_packet_alloc();
    if (av->stream == nullptr || av->codec == nullptr || av->frame == nullptr || av->packet == nullptr) {
        *error = "FFmpeg cannot set up its encoder";
        return false;
    }
    // Time in thousandths of a frame period is exact enough for any rate.
    const AVRational rate = av_d2q(fps > 0 ? fps : 30.0, 100000);
    av->codec->width = size.width;
    av->codec->height = size.height;
    av->codec->pix_fmt = AV_PIX_FMT_YUV420P;
    av->codec->time_base = av_inv_q(rate);
    av->codec->framerate = rate;
    av->codec->gop_size = 60;
    av->codec->thread_count = 0;
    if (av->format->oformat->flags & AVFMT_GLOBALHEADER) {
        av->codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (std::string(codec->name) == "libx264") {
        av_opt_set(av->codec->priv_data, "preset", "ultrafast", 0);
        av_opt_set(av->codec->priv_data, "crf", "26", 0);
    } else {
        av->codec->bit_rate = 2000000;
    }
    if (avcodec_open2(av->codec, codec, nullptr) < 0 ||
        avcodec_parameters_from_context(av->stream->codecpar, av->codec) < 0) {
        *error = std::string("FFmpeg cannot open its ") + codec->name + " encoder";
        return false;
    }
    av->stream->time_base = av->codec->time_base;
    av->stream->avg_frame_rate = rate;
    if (avio_open(&av->format->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) {
        *error = "cannot write '" + path + "'";
        return false;
    }
    if (avformat_write_header(av->format, nullptr) < 0) {
        *error = "FFmpeg cannot start '" + path + "'";
        return false;
    }
    av->headerWritten = true;
    av->frame->format = AV_PIX_FMT_YUV420P;
    av->frame->width = size.width;
    av->frame->height = size.height;
    if (av_frame_get_buffer(av->frame, 0) < 0) {
        *error = "out of memory for the video's picture";
        return false;
    }
    av->sws = sws_getContext(size.width, size.height, AV_PIX_FMT_BGR24, size.width, size.height,
                             AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (av->sws == nullptr) {
        *error = "FFmpeg cannot convert the pictures";
        return false;
    }
    return true;
}

bool VideoEncoder::drain() {
    for (;;) {
        const int r = avcodec_receive_packet(av_->codec, av_->packet);
        if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) {
            return true;
        }
        if (r < 0) {
            return false;
        }
        // Each picture lasts one period, the last one too, so that players
        // read the rate the video was made at.
        av_->packet->duration = 1;
        av_packet_rescale_ts(av_->packet, av_->codec->time_base, av_->stream->time_base);
        av_->packet->stream_index = av_->stream->index;
        if (av_interleaved_write_frame(av_->format, av_->packet) < 0) {
            return false;
        }
    }
}

bool VideoEncoder::write(const cv::Mat &bgr) {
    if (av_->finished || bgr.cols != av_->codec->width || bgr.rows != av_->codec->height ||
        bgr.type() != CV_8UC3 || av_frame_make_writable(av_->frame) < 0) {
        return false;
    }
    const uint8_t *src[1] = {bgr.data};
    const int srcStride[1] = {static_cast<int>(bgr.step)};
    sws_scale(av_->sws, src, srcStride, 0, bgr.rows, av_->frame->data, av_->frame->linesize);
    av_->frame->pts = av_->next++;
    return avcodec_send_frame(av_->codec, av_->frame) >= 0 && drain();
}

bool VideoEncoder::finish() {
    if (av_->finished) {
        return false;
    }
    av_->finished = true;
    const bool flushed = avcodec_send_frame(av_->codec, nullptr) >= 0 && drain();
    const bool trailer = av_->headerWritten && av_write_trailer(av_->format) >= 0;
    const bool closed = avio_closep(&av_->format->pb) >= 0;
    return flushed && trailer && closed;
}

}  // namespace replay
