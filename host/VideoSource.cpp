#include "VideoSource.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "ZT5Config.h"

std::string AvError(int code)
{
    char buf[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(code, buf, sizeof(buf));
    return buf;
}

namespace {

std::string Seconds(double s)
{
    char buf[32];
    std::snprintf(buf, sizeof(buf), "%.2f s", s);
    return buf;
}

bool IsFullRange(const AVFrame *f)
{
    switch (f->format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P: return true;
    default: return f->color_range == AVCOL_RANGE_JPEG;
    }
}

// The display's colour word for a picture. A stream that doesn't say which
// matrix it uses gets the usual guess: HD sizes are BT.709, smaller ones
// BT.601.
uint32_t ColourWord(const AVFrame *f)
{
    uint32_t matrix;
    switch (f->colorspace) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_SMPTE240M: matrix = ZT5_YUV_MATRIX_BT709; break;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: matrix = ZT5_YUV_MATRIX_BT2020; break;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_FCC: matrix = ZT5_YUV_MATRIX_BT601; break;
    default: matrix = f->height >= 720 ? ZT5_YUV_MATRIX_BT709 : ZT5_YUV_MATRIX_BT601; break;
    }
    return matrix | (IsFullRange(f) ? ZT5_YUV_RANGE_FULL : 0u);
}

// Codecs that turn text into pictures: a text file is not a video even
// though a demuxer offers to show it.
bool IsTextArt(AVCodecID id)
{
    return id == AV_CODEC_ID_ANSI || id == AV_CODEC_ID_BINTEXT || id == AV_CODEC_ID_XBIN || id == AV_CODEC_ID_IDF;
}

} // namespace

struct VideoSource::Impl {
    std::string path;
    PictureLayout layout = PictureLayout::kAsDecoded;
    AVFormatContext *fmt = nullptr;
    AVCodecContext *dec = nullptr;
    AVPacket *pkt = nullptr;
    AVFrame *frame = nullptr;     // the decoder's picture
    AVFrame *converted = nullptr; // swscale's, when the layout must change
    SwsContext *sws = nullptr;
    int stream = -1;
    AVRational timeBase = {1, 1};
    int64_t startTs = 0;          // stream start, in timeBase
    double frameDuration = 0.04;  // seconds, from the stream's rate
    double length = -1.0;         // seconds the stream says it lasts; negative: unknown
    double lengthSlack = 0.5;     // how much shorter a pass may end without being "cut short"
    bool draining = false;        // the decoder has been told the packets ended
    bool havePending = false;     // `frame` holds a picture not handed out yet
    double lastPts = -1.0;
    double skipUntil = -1.0;      // after a seek: pictures before this are dropped
    long picturesThisPass = 0;
    long picturesTotal = 0;
    int decodeErrors = 0;
    bool once = false;  // no loop: the end of the stream ends the source
    bool ended = false;
    AVRational rate = {0, 1};

    ~Impl()
    {
        sws_freeContext(sws);
        av_frame_free(&converted);
        av_frame_free(&frame);
        av_packet_free(&pkt);
        avcodec_free_context(&dec);
        avformat_close_input(&fmt);
    }

    double PtsOf(const AVFrame *f) const
    {
        const int64_t ts = f->best_effort_timestamp;
        if (ts == AV_NOPTS_VALUE) return lastPts < 0 ? 0.0 : lastPts + frameDuration;
        return double(ts - startTs) * av_q2d(timeBase);
    }

    // A damaged packet is skipped, as players do; a stream that yields
    // nothing but errors is given up.
    bool DecodeError(int code, std::string *error)
    {
        if (++decodeErrors >= 50 && picturesTotal == 0) {
            *error = path + ": the video can't be decoded (" + AvError(code) + ")";
            return false;
        }
        return true;
    }

    bool SeekTo(double seconds)
    {
        const int64_t ts = startTs + int64_t(std::llround(seconds / av_q2d(timeBase)));
        if (av_seek_frame(fmt, stream, ts, AVSEEK_FLAG_BACKWARD) < 0) {
            // Streams without an index (raw elementary streams) can still
            // go back to their first byte.
            if (seconds > 0 || av_seek_frame(fmt, -1, 0, AVSEEK_FLAG_BYTE) < 0) return false;
        }
        avcodec_flush_buffers(dec);
        draining = false;
        havePending = false;
        skipUntil = seconds > 0 ? seconds : -1.0;
        return true;
    }

    // The decoder has given its last picture of this pass.
    bool EndOfPass(std::string *error)
    {
        if (picturesThisPass == 0) {
            *error = path + ": no picture could be decoded";
            return false;
        }
        const double reached = lastPts + frameDuration;
        if (length > 0 && reached < length - lengthSlack) {
            *error = path + " is cut short: its video stops at " + Seconds(reached) + " of " + Seconds(length);
            return false;
        }
        if (once) {
            ended = true;
            error->clear();
            return false;
        }
        picturesThisPass = 0;
        if (!SeekTo(0.0)) {
            *error = path + ": cannot go back to the start to play it again";
            return false;
        }
        lastPts = -1.0;
        return true;
    }

    // Leaves the next picture in `frame`.
    bool Decode(std::string *error)
    {
        for (;;) {
            int r = avcodec_receive_frame(dec, frame);
            if (r == 0) {
                const double pts = PtsOf(frame);
                if (skipUntil >= 0 && pts < skipUntil - frameDuration / 2) {
                    av_frame_unref(frame);
                    continue;
                }
                skipUntil = -1.0;
                lastPts = pts;
                picturesThisPass++;
                picturesTotal++;
                return true;
            }
            if (r == AVERROR_EOF) {
                if (!EndOfPass(error)) return false;
                continue;
            }
            if (r != AVERROR(EAGAIN)) {
                if (!DecodeError(r, error)) return false;
                continue;
            }
            r = av_read_frame(fmt, pkt);
            if (r < 0) {
                if (r != AVERROR_EOF && !(fmt->pb && avio_feof(fmt->pb))) {
                    *error = path + ": read error (" + AvError(r) + ")";
                    return false;
                }
                if (!draining) avcodec_send_packet(dec, nullptr);
                draining = true;
                continue;
            }
            if (pkt->stream_index == stream) {
                r = avcodec_send_packet(dec, pkt);
                if (r < 0 && r != AVERROR(EAGAIN) && !DecodeError(r, error)) {
                    av_packet_unref(pkt);
                    return false;
                }
            }
            av_packet_unref(pkt);
        }
    }

    // `frame` converted to `dst` by libswscale. Only the layout changes:
    // the matrix and the range of the samples stay as they are.
    AVFrame *Convert(AVPixelFormat dst, std::string *error)
    {
        const int w = frame->width, h = frame->height;
        if (!converted || converted->width != w || converted->height != h || converted->format != dst) {
            av_frame_free(&converted);
            converted = av_frame_alloc();
            if (!converted) return nullptr;
            converted->width = w;
            converted->height = h;
            converted->format = dst;
            if (av_frame_get_buffer(converted, 0) < 0) {
                av_frame_free(&converted);
                *error = path + ": out of memory";
                return nullptr;
            }
        }
        sws = sws_getCachedContext(sws, w, h, AVPixelFormat(frame->format), w, h, dst, SWS_BILINEAR, nullptr,
                                   nullptr, nullptr);
        if (!sws) {
            *error = path + ": cannot convert " + av_get_pix_fmt_name(AVPixelFormat(frame->format)) + " pictures";
            return nullptr;
        }
        const int range = IsFullRange(frame) ? 1 : 0;
        const int *coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
        sws_setColorspaceDetails(sws, coefficients, range, coefficients, range, 0, 1 << 16, 1 << 16);
        sws_scale(sws, frame->data, frame->linesize, 0, h, converted->data, converted->linesize);
        return converted;
    }

    bool Deliver(Picture *p, std::string *error)
    {
        // The layouts the display takes, by FFmpeg's name for them.
        static const struct {
            AVPixelFormat format;
            PictureLayout layout;
            uint32_t cs;
        } kLayouts[] = {
            {AV_PIX_FMT_YUV420P, PictureLayout::kI420, ZT5_FRAME_CS_I420},
            {AV_PIX_FMT_YUVJ420P, PictureLayout::kI420, ZT5_FRAME_CS_I420},
            {AV_PIX_FMT_NV12, PictureLayout::kNV12, ZT5_FRAME_CS_NV12},
            {AV_PIX_FMT_NV21, PictureLayout::kAsDecoded, ZT5_FRAME_CS_SEMIPLANAR_A},
            {AV_PIX_FMT_YUYV422, PictureLayout::kYUYV, ZT5_FRAME_CS_YUYV},
            {AV_PIX_FMT_UYVY422, PictureLayout::kUYVY, ZT5_FRAME_CS_UYVY},
            {AV_PIX_FMT_YUV420P10LE, PictureLayout::kI010, ZT5_FRAME_CS_I010},
            {AV_PIX_FMT_P010LE, PictureLayout::kP010, ZT5_FRAME_CS_P010},
        };
        const AVPixelFormat f = AVPixelFormat(frame->format);
        const AVFrame *out = frame;
        uint32_t cs = 0;
        for (const auto &l : kLayouts)
            if (l.format == f && (layout == PictureLayout::kAsDecoded || layout == l.layout)) cs = l.cs;
        // Planar chroma at one pitch, and pairs of the V-first order at the
        // luma pitch, as the display reads them.
        if ((cs == ZT5_FRAME_CS_I420 || cs == ZT5_FRAME_CS_I010) && frame->linesize[1] != frame->linesize[2]) cs = 0;
        if (cs == ZT5_FRAME_CS_SEMIPLANAR_A && frame->linesize[1] != frame->linesize[0]) cs = 0;
        if (!cs) {
            // Converted to the layout asked for, or to planar 8-bit.
            AVPixelFormat to = AV_PIX_FMT_YUV420P;
            cs = ZT5_FRAME_CS_I420;
            for (const auto &l : kLayouts)
                if (layout != PictureLayout::kAsDecoded && l.layout == layout) to = l.format, cs = l.cs;
            out = Convert(to, error);
            if (!out) return false;
        }

        *p = Picture();
        p->width = frame->width;
        p->height = frame->height;
        p->csType = cs;
        p->pts = lastPts;
        p->yuvMatrix = ColourWord(frame);
        p->planes[0] = out->data[0];
        p->strides[0] = out->linesize[0];
        p->strides[1] = p->strides[2] = out->linesize[1];
        if (cs == ZT5_FRAME_CS_I420 || cs == ZT5_FRAME_CS_I010) {
            p->planes[1] = out->data[1];
            p->planes[2] = out->data[2];
        } else if (cs == ZT5_FRAME_CS_NV12 || cs == ZT5_FRAME_CS_P010 || cs == ZT5_FRAME_CS_SEMIPLANAR_A) {
            // One plane of pairs: plane 1 at the first U sample, plane 2 at
            // the first V (a sample is two bytes in P010).
            const int second = cs == ZT5_FRAME_CS_P010 ? 2 : 1;
            const bool uFirst = cs != ZT5_FRAME_CS_SEMIPLANAR_A;
            p->planes[1] = out->data[1] + (uFirst ? 0 : second);
            p->planes[2] = out->data[1] + (uFirst ? second : 0);
        }
        return true;
    }
};

VideoSource::VideoSource() : m(new Impl) {}
VideoSource::~VideoSource() = default;

void VideoSource::SetLibraryLog(bool verbose)
{
    av_log_set_level(verbose ? AV_LOG_INFO : AV_LOG_QUIET);
}

bool VideoSource::Open(const std::string &path, PictureLayout layout, std::string *error)
{
    m->path = path;
    m->layout = layout;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        *error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        *error = path + " is a directory, not a video file";
        return false;
    }
    int r = avformat_open_input(&m->fmt, path.c_str(), nullptr, nullptr);
    if (r < 0) {
        *error = path + " is not a video file FFmpeg can read (" + AvError(r) + ")";
        return false;
    }
    r = avformat_find_stream_info(m->fmt, nullptr);
    if (r < 0) {
        *error = path + ": cannot read its streams (" + AvError(r) + ")";
        return false;
    }
    const AVCodec *codec = nullptr;
    m->stream = av_find_best_stream(m->fmt, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (m->stream == AVERROR_DECODER_NOT_FOUND) {
        *error = path + ": no decoder for its video";
        return false;
    }
    if (m->stream < 0) {
        *error = path + " has no video stream";
        return false;
    }
    AVStream *vs = m->fmt->streams[m->stream];
    if (vs->disposition & AV_DISPOSITION_ATTACHED_PIC) {
        *error = path + " has no video stream, only a cover picture";
        return false;
    }
    if (IsTextArt(vs->codecpar->codec_id)) {
        *error = path + " is text, not a video";
        return false;
    }

    m->timeBase = vs->time_base;
    m->startTs = vs->start_time != AV_NOPTS_VALUE ? vs->start_time : 0;
    const AVRational rate = av_guess_frame_rate(m->fmt, vs, nullptr);
    if (rate.num > 0 && rate.den > 0) m->frameDuration = av_q2d(av_inv_q(rate));
    m->rate = rate.num > 0 && rate.den > 0 ? rate : AVRational{30, 1};
    if (vs->duration != AV_NOPTS_VALUE && vs->duration > 0) {
        m->length = double(vs->duration) * av_q2d(vs->time_base);
        m->lengthSlack = std::max(0.5, 3 * m->frameDuration);
    } else if (m->fmt->duration != AV_NOPTS_VALUE && m->fmt->duration > 0) {
        // The container's length may include a longer sound track: more
        // slack.
        m->length = double(m->fmt->duration) / AV_TIME_BASE;
        m->lengthSlack = std::max({0.5, 3 * m->frameDuration, 0.05 * m->length});
    }

    m->dec = avcodec_alloc_context3(codec);
    m->pkt = av_packet_alloc();
    m->frame = av_frame_alloc();
    if (!m->dec || !m->pkt || !m->frame) {
        *error = "out of memory";
        return false;
    }
    avcodec_parameters_to_context(m->dec, vs->codecpar);
    m->dec->thread_count = 0; // as many as the machine has
    r = avcodec_open2(m->dec, codec, nullptr);
    if (r < 0) {
        *error = path + ": cannot start the " + codec->name + " decoder (" + AvError(r) + ")";
        return false;
    }
    // The first picture now, so that a file with nothing decodable is
    // refused before a window opens.
    if (!m->Decode(error)) return false;
    m->havePending = true;
    m_width = m->frame->width;
    m_height = m->frame->height;
    return true;
}

bool VideoSource::Next(Picture *picture, std::string *error)
{
    if (!m->dec) {
        *error = "no video open";
        return false;
    }
    m->once = m_bOnce;
    if (m->ended) {
        error->clear();
        return false;
    }
    if (m->havePending) m->havePending = false;
    else if (!m->Decode(error)) return false;
    return m->Deliver(picture, error);
}

bool VideoSource::SeekBy(double seconds)
{
    if (!m->dec) return false;
    double target = std::max(0.0, m->lastPts + seconds);
    if (m->length > 0 && target >= m->length) target = 0.0; // past the end: from the start, as the loop would
    return m->SeekTo(target);
}

void VideoSource::TimeBase(int *num, int *den) const
{
    *num = m->timeBase.num;
    *den = m->timeBase.den;
}

void VideoSource::FrameRate(int *num, int *den) const
{
    *num = m->rate.num;
    *den = m->rate.den;
}

double VideoSource::Length() const
{
    return m->length;
}

int64_t VideoSource::Timestamp(const Picture &picture) const
{
    return std::llround(picture.pts / av_q2d(m->timeBase));
}

std::string VideoSource::Describe() const
{
    if (!m->dec) return "no video";
    const AVFrame *f = m->frame;
    const uint32_t word = ColourWord(f);
    const char *matrix[] = {"BT.601", "BT.709", "BT.2020"};
    const char *pix = av_get_pix_fmt_name(AVPixelFormat(f->format));
    char buf[256];
    std::snprintf(buf, sizeof(buf), "%s %dx%d %s, %s %s range, %.3g fps, %s", m->dec->codec->name, f->width,
                  f->height, pix ? pix : "?", matrix[word & 0xFF], (word & ZT5_YUV_RANGE_FULL) ? "full" : "video",
                  1.0 / m->frameDuration, m->length > 0 ? Seconds(m->length).c_str() : "length unknown");
    return buf;
}
