#include "link/save_file.h"

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
