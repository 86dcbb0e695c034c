// The program's built-in images, served by file name ("liveOn.png", ...).
// The collection is generated at build time by make_images; each entry holds
// the pixels compressed in qUncompress form (4-byte big-endian length, then
// a zlib stream).
#pragma once

#include <QImage>
#include <QPixmap>
#include <QString>

struct EmbeddedImage {
  const char* name;  // UTF-8; null in the end marker
  int width;
  int height;
  int depth;                    // bits per pixel
  const unsigned int* colorTable;  // for indexed images, else null
  int numColors;
  bool alpha;
  const unsigned char* data;  // null in the end marker
  int compressedLength;
};

// The generated table, ended by an entry with no data.
const EmbeddedImage* EmbeddedImages();

// Looks an image up by name: the first entry of that name, decompressed; an
// unknown name (or damaged data) gives a null image.
QImage FindImage(const EmbeddedImage* collection, const QString& name);

// What widgets use: the named image as a pixmap (null when unknown).
QPixmap LoadPixmap(const QString& name);
