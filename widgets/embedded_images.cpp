#include "widgets/embedded_images.h"

#include <QByteArray>
#include <QHash>

QImage FindImage(const EmbeddedImage* collection, const QString& name) {
  const QByteArray wanted = name.toUtf8();
  for (const EmbeddedImage* entry = collection; entry->data; ++entry) {
    if (wanted != entry->name) continue;
    const QByteArray pixels = qUncompress(entry->data, entry->compressedLength);
    QImage::Format format = QImage::Format_Invalid;
    if (entry->depth == 32) format = entry->alpha ? QImage::Format_ARGB32 : QImage::Format_RGB32;
    if (entry->depth == 8) format = QImage::Format_Indexed8;
    if (format == QImage::Format_Invalid) return {};
    QImage image(entry->width, entry->height, format);
    if (image.isNull() || pixels.size() != image.sizeInBytes()) return {};
    std::copy(pixels.begin(), pixels.end(), reinterpret_cast<char*>(image.bits()));
    if (entry->colorTable) {
      QList<QRgb> colors(entry->colorTable, entry->colorTable + entry->numColors);
      image.setColorTable(colors);
    }
    return image;
  }
  return {};
}

QPixmap LoadPixmap(const QString& name) {
  // Icons are asked for on every control refresh; decompress each one once.
  // (Images, not pixmaps, are kept: they may outlive the application object.)
  static QHash<QString, QImage> cache;
  auto it = cache.find(name);
  if (it == cache.end()) it = cache.insert(name, FindImage(EmbeddedImages(), name));
  return QPixmap::fromImage(*it);
}
