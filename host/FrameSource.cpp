#include "FrameSource.h"

SyntheticSource::SyntheticSource(const synthetic::LensFrame &lens) : m_lens(lens)
{
    m_width = lens.width;
    m_height = lens.height;
    m_buffer.resize(size_t(m_width) * m_height * 3 / 2);
}

uint8_t *SyntheticSource::Next()
{
    synthetic::RenderFisheyeFrame(m_lens, m_frame++, m_buffer.data());
    return m_buffer.data();
}

RawI420Source::~RawI420Source()
{
    if (m_file) std::fclose(m_file);
}

bool RawI420Source::Open(const std::string &path, int width, int height, std::string *error)
{
    m_file = std::fopen(path.c_str(), "rb");
    if (!m_file) {
        *error = "cannot open " + path;
        return false;
    }
    m_width = width;
    m_height = height;
    m_buffer.resize(size_t(width) * height * 3 / 2);
    if (!Next()) {
        *error = path + " holds less than one " + std::to_string(width) + "x" + std::to_string(height) +
                 " I420 frame";
        return false;
    }
    std::rewind(m_file);
    return true;
}

uint8_t *RawI420Source::Next()
{
    if (!m_file) return nullptr;
    for (int attempt = 0; attempt < 2; attempt++) {
        if (std::fread(m_buffer.data(), 1, m_buffer.size(), m_file) == m_buffer.size()) return m_buffer.data();
        std::rewind(m_file); // loop; a partial last frame is dropped
    }
    return nullptr;
}
