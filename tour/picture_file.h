// Pictures on disk: PNG and JPEG in, PNG out.
#ifndef QOR_TOUR_PICTURE_FILE_H
#define QOR_TOUR_PICTURE_FILE_H

#include <string>

#include "image.h"

namespace tour {

// The largest picture that the tour takes: every exhibit is a PNG file of the same size.
constexpr int32_t longestSide = 16384;
constexpr int64_t mostPixels = 40000000;

// Reads a PNG of any kind or a JPEG in grey or colour, told apart by content, as 8-bit grey (one channel) or RGB
// (three). 16-bit samples are reduced, transparency is laid on white, an RGB picture without any colour becomes grey.
// Throws a Failure that names the file and the reason.
Image8u readPicture(const std::string& path);

// Writes an image of one or three channels. Throws a Failure.
void writePng(const std::string& path, const Image8u& image);

}  // namespace tour

#endif
