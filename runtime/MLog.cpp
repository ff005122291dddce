#include "MLog.h"

#include <sys/time.h>
#include <time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

MDWord g_dwLogLevel = 0;
CMLog *g_pLog = nullptr;

static MLogSink g_logSink = nullptr;

void MLogSetLevel(MDWord level)
{
    g_dwLogLevel = level;
}

void MLogSetSink(MLogSink sink)
{
    g_logSink = sink;
}

void MLogPrint(const char *format, ...)
{
    static const size_t kLine = 40960;
    char *line = static_cast<char *>(MMemAlloc(kLine));
    if (!line) return;

    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm lt;
    time_t secs = tv.tv_sec;
    localtime_r(&secs, &lt);
    int n = std::snprintf(line, kLine, "[%04d-%02d-%02d %02d:%02d:%02d.%03d tid:%lu]", lt.tm_year + 1900,
                          lt.tm_mon + 1, lt.tm_mday, lt.tm_hour, lt.tm_min, lt.tm_sec, int(tv.tv_usec / 1000),
                          MThreadCurrentId());
    if (n < 0) n = 0;
    if (size_t(n) < kLine) {
        va_list ap;
        va_start(ap, format);
        std::vsnprintf(line + n, kLine - size_t(n), format, ap);
        va_end(ap);
    }
    if (g_logSink)
        g_logSink(line);
    else
        std::fputs(line, stderr);
    MMemFree(line);
}

// --------------------------------------------------------------- CMLog

static const char *kDumpNames[5] = {"AudioIn.dump", "AudioOut.pcm", "VideoIn.dump", "VideoOut.i420",
                                    "AudioDevIn.pcm"};

static int DumpIndex(MDWord type)
{
    switch (type) {
    case 4: return 0;
    case 8: return 2;
    case 16: return 1;
    case 32: return 3;
    case 64: return 4;
    default: return -1;
    }
}

CMLog::CMLog() = default;

CMLog::~CMLog()
{
    m_Mutex.Lock();
    FlushLocked();
    if (m_hFile) std::fclose(m_hFile);
    m_hFile = nullptr;
    MMemFree(m_pBuffer);
    m_pBuffer = m_pWrite = nullptr;
    for (FILE *&f : m_hDumpFile) {
        if (f) std::fclose(f);
        f = nullptr;
    }
    m_Mutex.Unlock();
}

void CMLog::FlushLocked()
{
    if (m_hFile && m_pBuffer && m_pWrite > m_pBuffer) {
        std::fwrite(m_pBuffer, 1, size_t(m_pWrite - m_pBuffer), m_hFile);
        std::fflush(m_hFile);
    }
    m_pWrite = m_pBuffer;
}

void CMLog::Flush()
{
    m_Mutex.Lock();
    FlushLocked();
    m_Mutex.Unlock();
}

void CMLog::Write(const void *data, size_t size)
{
    m_Mutex.Lock();
    if (m_bNoFile) {
        if (m_dwDumpLevel > 0 && data) {
            std::fwrite(data, 1, size, stderr);
        }
    } else if (m_pBuffer && data && size_t(m_pWrite - m_pBuffer) + size <= m_dwBufferSize) {
        MMemCpy(m_pWrite, data, size);
        m_pWrite += size;
    } else {
        // The message that did not fit is dropped with the flush.
        FlushLocked();
    }
    m_Mutex.Unlock();
}

void CMLog::Dump(MDWord type, const void *data, size_t size)
{
    if (m_dwDumpLevel < 2) return;
    m_Mutex.Lock();
    int idx = DumpIndex(type);
    const char *name = idx < 0 ? "" : kDumpNames[idx];
    if (idx < 0) idx = 0;
    if (!m_hDumpFile[idx]) {
        char path[520];
        std::snprintf(path, sizeof(path), "%s%s", m_szDumpDir, name);
        m_hDumpFile[idx] = std::fopen(path, "ab");
    }
    if (m_hDumpFile[idx] && data && size) std::fwrite(data, 1, size, m_hDumpFile[idx]);
    m_Mutex.Unlock();
}

void MLogOpen(const char *prefix, MDWord flag)
{
    if (!prefix) return;
    char path[260];
    std::snprintf(path, sizeof(path), "%s_%s", prefix, "Ztcore5Player.log");
    std::remove(path);
    if (g_pLog) {
        g_pLog->Flush();
        delete g_pLog;
        g_pLog = nullptr;
    }
    CMLog *log = new (std::nothrow) CMLog();
    if (!log) return;
    g_pLog = log;
    log->m_hFile = std::fopen(path, "ab");
    if (!log->m_hFile) {
        log->m_bNoFile = 1;
        log->m_dwDumpLevel = flag;
        return;
    }
    std::snprintf(log->m_szPath, sizeof(log->m_szPath), "%s", path);
    std::snprintf(log->m_szDir, sizeof(log->m_szDir), "%s", path);
    char *cut = std::strrchr(log->m_szDir, '\\');
    if (cut)
        *cut = '\0';
    else
        std::snprintf(log->m_szDir, sizeof(log->m_szDir), "\\");
    log->m_pBuffer = static_cast<unsigned char *>(MMemAlloc(CMLog::kBufferSize));
    if (!log->m_pBuffer) {
        delete log;
        g_pLog = nullptr;
        return;
    }
    log->m_pWrite = log->m_pBuffer;
    log->m_dwBufferSize = CMLog::kBufferSize;
    // The second argument is the dump level: 2 or more turns dump files on.
    log->m_dwDumpLevel = flag;
}

void MLogClose()
{
    if (!g_pLog) return;
    g_pLog->Flush();
    delete g_pLog;
    g_pLog = nullptr;
}

void MLogFlush()
{
    if (g_pLog) g_pLog->Flush();
}

void MLogWrite(const void *data, size_t size)
{
    if (g_pLog) g_pLog->Write(data, size);
}

void MLogDump(MDWord type, const void *data, size_t size)
{
    if (g_pLog) g_pLog->Dump(type, data, size);
}

int MLogDumpEnabled()
{
    return (g_pLog && g_pLog->m_dwDumpLevel >= 2) ? 1 : 0;
}
