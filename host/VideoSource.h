// A video file decoded with FFmpeg (libavformat + libavcodec), handed to the
// display without a conversion wherever the display takes the decoder's
// layout: planar 4:2:0 (padded strides included) and semi-planar 4:2:0.
// Anything else is converted to planar 4:2:0 with libswscale, keeping the
// samples' matrix and range. Loops at the end of the stream.
#ifndef PANOVIEW_HOST_VIDEOSOURCE_H
#define PANOVIEW_HOST_VIDEOSOURCE_H

#include <cstdint>
#include <memory>
#include <string>

#include "FrameSource.h"

// Layout of the pictures handed on: as decoded where the display takes it,
// or always one layout (converting when the decoder gives another).
// The layout pictures go to the display in: as the decoder gave them (when
// the display takes that layout, else planar 8-bit), or converted to one.
enum class PictureLayout { kAsDecoded, kI420, kNV12, kYUYV, kUYVY, kI010, kP010 };

class VideoSource : public FrameSource {
public:
    VideoSource();
    ~VideoSource() override;

    // Opens the file and its first video stream and decodes the first
    // picture. False with one line saying why: no such file, not a video,
    // no decoder, nothing decodable.
    bool Open(const std::string &path, PictureLayout layout, std::string *error);
    // At the end of the stream starts again from the beginning. Fails when
    // the file ends well before its stream said it would (a file cut short)
    // or can't be read.
    bool Next(Picture *picture, std::string *error) override;
    bool SeekBy(double seconds) override;
    // Play the stream once: at its end Next returns false with an empty
    // message (a stream cut short is still an error).
    void PlayOnce() { m_bOnce = true; }
    // The stream's time base and frame rate as fractions, its length in
    // seconds (negative: unknown).
    void TimeBase(int *num, int *den) const;
    void FrameRate(int *num, int *den) const;
    double Length() const;
    // A picture's timestamp in the time base.
    int64_t Timestamp(const Picture &picture) const;

    // One line: codec, size, pixel format, colours, rate, length.
    std::string Describe() const;
    // FFmpeg's own log lines: silent unless verbose (the player says what
    // went wrong in one line of its own).
    static void SetLibraryLog(bool verbose);

private:
    struct Impl;
    std::unique_ptr<Impl> m;
    bool m_bOnce = false;
};

// FFmpeg's text for an error code.
std::string AvError(int code);

#endif
