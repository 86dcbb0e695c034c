#include "link/save_file.h"

#include <QFile>
#include <QSaveFile>

bool SaveFileAtomically(const std::string& path, const std::string& contents,
                        std::string* error) {
  QSaveFile file(QString::fromStdString(path));
  const bool ok = file.open(QIODevice::WriteOnly) &&
                  file.write(contents.data(), qint64(contents.size())) == qint64(contents.size()) &&
                  file.commit();
  if (!ok && error) *error = file.errorString().toStdString();
  if (!ok) file.cancelWriting();
  return ok;
}

std::optional<std::string> ReadTextFile(const std::string& path, size_t maxBytes) {
  QFile file(QString::fromStdString(path));
  if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
  // Read one byte past the bound: devices and pipes have no size to ask.
  const QByteArray bytes = file.read(qint64(maxBytes) + 1);
  if (bytes.size() > qint64(maxBytes)) return std::nullopt;
  return bytes.toStdString();
}
