// Trace lines, the buffered log file and dump files.
#ifndef PANOVIEW_MLOG_H
#define PANOVIEW_MLOG_H

#include "MRuntime.h"

// 0 silent, 1 info, 2 and above also debug. Nothing in the library raises it.
extern MDWord g_dwLogLevel;

void MLogSetLevel(MDWord level);
// Formats one line behind the time/thread head and sends it to the debug
// output. Use the macros, which test the level before any formatting.
void MLogPrint(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Where trace lines go; tests capture them. Null restores the default
// (standard error).
typedef void (*MLogSink)(const char *line);
void MLogSetSink(MLogSink sink);

#define MLogInfo(...)                                        \
    do {                                                     \
        if (g_dwLogLevel >= 1) MLogPrint(__VA_ARGS__);       \
    } while (0)
#define MLogDebug(...)                                       \
    do {                                                     \
        if (g_dwLogLevel >= 2) MLogPrint(__VA_ARGS__);       \
    } while (0)

// Tag the lower layers put in the %s of their log lines.
#define MLOG_TAG "VideoRender"

class CMLog {
public:
    CMLog();
    virtual ~CMLog();

    void Write(const void *data, size_t size);
    void Flush();
    void Dump(MDWord type, const void *data, size_t size);

    static const MDWord kBufferSize = 51200;

    unsigned char *m_pBuffer = nullptr;
    unsigned char *m_pWrite = nullptr;
    FILE *m_hFile = nullptr;
    MDWord m_dwBufferSize = 0;
    char m_szPath[260] = {0};
    char m_szDir[260] = {0};
    MDWord m_bNoFile = 0;
    MDWord m_dwDumpLevel = 0;
    char m_szDumpDir[260] = {0};
    CZT5Mutex m_Mutex;
    FILE *m_hDumpFile[5] = {nullptr, nullptr, nullptr, nullptr, nullptr};

private:
    void FlushLocked();
};

extern CMLog *g_pLog;

void MLogOpen(const char *prefix, MDWord flag);
void MLogClose();
void MLogFlush();
void MLogWrite(const void *data, size_t size);
void MLogDump(MDWord type, const void *data, size_t size);
int MLogDumpEnabled();

#endif
