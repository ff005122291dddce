#include "VideoEncoder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include "VideoSource.h"
#include "ZT5Config.h"

namespace {

const AVCodec *FindEncoder(const std::string &name)
{
    // "h264" means libx264 where the libraries have it.
    if (name == "h264" || name == "x264") {
        if (const AVCodec *c = avcodec_find_encoder_by_name("libx264")) return c;
    }
    if (name == "h265" || name == "hevc") {
        if (const AVCodec *c = avcodec_find_encoder_by_name("libx265")) return c;
    }
    if (const AVCodec *c = avcodec_find_encoder_by_name(name.c_str())) return c;
    const AVCodecDescriptor *d = avcodec_descriptor_get_by_name(name.c_str());
    return d ? avcodec_find_encoder(d->id) : nullptr;
}

bool Supports(const AVCodec *codec, AVPixelFormat f)
{
    if (!codec->pix_fmts) return f == AV_PIX_FMT_YUV420P;
    for (const AVPixelFormat *p = codec->pix_fmts; *p != AV_PIX_FMT_NONE; p++)
        if (*p == f) return true;
    return false;
}

// The temporary name: beside the final one (a rename stays within one file
// system), hidden, and ending in the final name so that tools that look at
// the extension still see it.
std::string TemporaryName(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    return dir + ".part-" + std::to_string(getpid()) + "-" + base;
}

} // namespace

struct VideoEncoder::Impl {
    EncoderSettings s;
    std::string temporary;
    AVFormatContext *oc = nullptr;
    AVCodecContext *enc = nullptr;
    AVStream *stream = nullptr;
    AVFrame *frame = nullptr;
    AVPacket *pkt = nullptr;
    bool opened = false;   // the temporary file exists
    bool finished = false; // renamed to its final name
    bool full = false;
    int64_t frameTicks = 1; // one picture's duration in the encoder's time base

    ~Impl()
    {
        av_packet_free(&pkt);
        av_frame_free(&frame);
        avcodec_free_context(&enc);
        if (oc && opened) avio_closep(&oc->pb);
        avformat_free_context(oc);
        if (opened && !finished) std::remove(temporary.c_str());
    }

    // Sends one picture (null: the end) and writes what the encoder gives.
    int Encode(AVFrame *f)
    {
        int r = avcodec_send_frame(enc, f);
        if (r < 0) return r;
        for (;;) {
            r = avcodec_receive_packet(enc, pkt);
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return 0;
            if (r < 0) return r;
            // A packet without a duration would end the container's edit
            // list at its start, and players would drop the last picture.
            if (pkt->duration <= 0) pkt->duration = frameTicks;
            av_packet_rescale_ts(pkt, enc->time_base, stream->time_base);
            pkt->stream_index = stream->index;
            r = av_interleaved_write_frame(oc, pkt);
            if (r < 0) return r;
        }
    }
};

VideoEncoder::VideoEncoder() : m(new Impl) {}
VideoEncoder::~VideoEncoder() = default;

bool VideoEncoder::FullRange() const { return m->full; }
const char *VideoEncoder::CodecName() const { return m->enc ? m->enc->codec->name : "?"; }

bool VideoEncoder::Open(const EncoderSettings &o, std::string *error)
{
    m->s = o;
    const AVCodec *codec = FindEncoder(o.codec);
    if (!codec || codec->type != AVMEDIA_TYPE_VIDEO) {
        *error = "no video encoder named " + o.codec + " in the installed FFmpeg libraries";
        return false;
    }
    // The container from the final name; the bytes go to the temporary one.
    int r = avformat_alloc_output_context2(&m->oc, nullptr, nullptr, o.path.c_str());
    if (r < 0 || !m->oc) {
        *error = "no container for " + o.path + " (name it .mp4, .mkv, .mov or .avi)";
        return false;
    }

    // Full range where asked, or where the encoder takes nothing else.
    bool full = o.range == 1 || (o.range < 0 && codec->id == AV_CODEC_ID_MJPEG);
    AVPixelFormat pixFmt = full ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
    if (o.tenBit) {
        pixFmt = AV_PIX_FMT_YUV420P10LE;
        if (!Supports(codec, pixFmt)) {
            *error = std::string("the ") + codec->name + " encoder doesn't take 10-bit planar 4:2:0 pictures";
            return false;
        }
    } else if (!Supports(codec, pixFmt)) {
        pixFmt = full ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUVJ420P;
        if (!Supports(codec, pixFmt)) {
            *error = std::string("the ") + codec->name + " encoder doesn't take planar 4:2:0 pictures";
            return false;
        }
        // A range asked for is the samples' and the tag says so; the
        // encoder's usual follows the format it takes.
        if (o.range < 0) full = pixFmt == AV_PIX_FMT_YUVJ420P;
    }
    m->full = full;

    m->stream = avformat_new_stream(m->oc, nullptr);
    m->enc = avcodec_alloc_context3(codec);
    m->frame = av_frame_alloc();
    m->pkt = av_packet_alloc();
    if (!m->stream || !m->enc || !m->frame || !m->pkt) {
        *error = "out of memory";
        return false;
    }
    AVCodecContext *c = m->enc;
    c->width = o.width;
    c->height = o.height;
    c->time_base = AVRational{o.timeBaseNum, o.timeBaseDen};
    c->framerate = AVRational{o.rateNum, o.rateDen};
    m->frameTicks = std::max<int64_t>(1, av_rescale_q(1, av_inv_q(c->framerate), c->time_base));
    c->pix_fmt = pixFmt;
    c->gop_size = o.rateDen > 0 ? std::max(1, o.rateNum / o.rateDen) : 30; // a key picture a second
    c->color_range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (o.matrix == ZT5_YUV_MATRIX_BT709) {
        c->colorspace = AVCOL_SPC_BT709;
        c->color_primaries = AVCOL_PRI_BT709;
        c->color_trc = AVCOL_TRC_BT709;
    } else if (o.matrix == ZT5_YUV_MATRIX_BT2020) {
        c->colorspace = AVCOL_SPC_BT2020_NCL;
        c->color_primaries = AVCOL_PRI_BT2020;
        c->color_trc = AVCOL_TRC_BT2020_10;
    } else {
        c->colorspace = AVCOL_SPC_SMPTE170M;
        c->color_primaries = AVCOL_PRI_SMPTE170M;
        c->color_trc = AVCOL_TRC_SMPTE170M;
    }
    if (!full && pixFmt == AV_PIX_FMT_YUV420P) c->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL; // MJPEG
    // Good quality: the tests compare colours of the decoded pictures.
    if (!std::strcmp(codec->name, "libx264") || !std::strcmp(codec->name, "libx265")) {
        av_opt_set(c->priv_data, "preset", "ultrafast", 0);
        av_opt_set(c->priv_data, "crf", "16", 0);
        // x265 prints on its own unless told not to.
        if (av_log_get_level() < AV_LOG_INFO) av_opt_set(c->priv_data, "x265-params", "log-level=none", 0);
    } else if (!std::strcmp(codec->name, "libvpx-vp9")) {
        av_opt_set(c->priv_data, "deadline", "realtime", 0);
        av_opt_set(c->priv_data, "cpu-used", "8", 0);
        av_opt_set(c->priv_data, "crf", "20", 0);
        c->bit_rate = 0;
    } else {
        c->flags |= AV_CODEC_FLAG_QSCALE;
        c->global_quality = FF_QP2LAMBDA * 2;
    }
    if (m->oc->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    r = avcodec_open2(c, codec, nullptr);
    if (r < 0) {
        *error = std::string("cannot start the ") + codec->name + " encoder (" + AvError(r) + ")";
        return false;
    }
    avcodec_parameters_from_context(m->stream->codecpar, c);
    m->stream->time_base = c->time_base;

    m->temporary = TemporaryName(o.path);
    r = avio_open(&m->oc->pb, m->temporary.c_str(), AVIO_FLAG_WRITE);
    if (r < 0) {
        *error = "cannot write " + o.path + " (" + AvError(r) + ")";
        return false;
    }
    m->opened = true;
    // The muxer's second pass (the index moved to the front) reads the file
    // back by its name: the temporary one.
    av_free(m->oc->url);
    m->oc->url = av_strdup(m->temporary.c_str());
    // The index at the front where the container allows: the file plays
    // while it is still arriving.
    AVDictionary *muxOptions = nullptr;
    av_dict_set(&muxOptions, "movflags", "+faststart", 0);
    r = avformat_write_header(m->oc, &muxOptions);
    av_dict_free(&muxOptions);
    if (r < 0) {
        *error = "cannot write " + o.path + " (" + AvError(r) + ")";
        return false;
    }
    m->frame->width = o.width;
    m->frame->height = o.height;
    m->frame->format = pixFmt;
    if (av_frame_get_buffer(m->frame, 0) < 0) {
        *error = "out of memory";
        return false;
    }
    return true;
}

bool VideoEncoder::Write(const uint8_t *i420, int64_t pts, std::string *error)
{
    AVFrame *f = m->frame;
    if (av_frame_make_writable(f) < 0) {
        *error = "out of memory";
        return false;
    }
    const int w = m->s.width, h = m->s.height, cw = (w + 1) / 2, ch = (h + 1) / 2;
    const uint8_t *src[3] = {i420, i420 + size_t(w) * h, i420 + size_t(w) * h + size_t(cw) * ch};
    // Rows of each plane: bytes as they are, or 16-bit words holding the
    // sample times four.
    auto row = [&](int p, int y, const uint8_t *from, int samples) {
        uint8_t *to = f->data[p] + size_t(y) * f->linesize[p];
        if (!m->s.tenBit) {
            std::memcpy(to, from, size_t(samples));
            return;
        }
        for (int x = 0; x < samples; x++) {
            const uint16_t v = uint16_t(from[x] << 2);
            to[2 * x] = uint8_t(v & 0xFF);
            to[2 * x + 1] = uint8_t(v >> 8);
        }
    };
    for (int y = 0; y < h; y++) row(0, y, src[0] + size_t(y) * w, w);
    for (int p = 1; p <= 2; p++)
        for (int y = 0; y < ch; y++) row(p, y, src[p] + size_t(y) * cw, cw);
    f->pts = pts;
    const int r = m->Encode(f);
    if (r < 0) {
        *error = "encoding " + m->s.path + " failed (" + AvError(r) + ")";
        return false;
    }
    return true;
}

bool VideoEncoder::Finish(std::string *error)
{
    int r = m->Encode(nullptr);
    if (r >= 0) r = av_write_trailer(m->oc);
    if (r >= 0) r = avio_closep(&m->oc->pb);
    if (r < 0) {
        *error = "cannot finish " + m->s.path + " (" + AvError(r) + ")";
        return false; // the temporary file goes with the encoder
    }
    if (std::rename(m->temporary.c_str(), m->s.path.c_str()) != 0) {
        *error = "cannot write " + m->s.path + " (" + std::strerror(errno) + ")";
        return false;
    }
    m->finished = true;
    return true;
}
