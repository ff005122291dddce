// The demo's face source: a few labelled rectangles that move over the
// built-in scene, handed to the display as a face list at every frame, with
// names from a host list of its own (read by the display under the host's
// mutex). One face loses its image id half way and, having no name of its
// own, keeps the name of the face it was a moment before.
#ifndef PANOVIEW_HOST_FACEDEMO_H
#define PANOVIEW_HOST_FACEDEMO_H

#include "PanoviewHost.h"
#include "ZT5Mutex.h"

class FaceDemo {
public:
    // Font, names, option: what a host sends once, before Init or after.
    void Start(PanoviewDisplay &display, const char *pFontPath);
    // The faces of frame `frame` of a picture of width x height.
    void Update(PanoviewDisplay &display, long frame, int width, int height);

private:
    static const int kFaces = 3;
    CZT5Mutex m_NamesMutex;
    ZT5FaceInfoEntry m_Names[2] = {};
    ZT5FaceInfoList m_NameList = {m_Names, 2};
    ZT5FaceRect m_Faces[kFaces] = {};
};

#endif
