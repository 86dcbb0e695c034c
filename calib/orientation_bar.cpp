#include "calib/orientation_bar.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFont>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "link/save_file.h"
#include "link/zortk.h"
#include "widgets/embedded_images.h"
#include "widgets/my_table.h"
#include "widgets/separator.h"

namespace {

QLabel* Text(const char* text, QWidget* parent) { return new QLabel(QString::fromUtf8(text), parent); }

}  // namespace

OrientationBar::OrientationBar(QWidget* parent, ZOR* session)
    : QDockWidget(QStringLiteral("Orientation"), parent), session_(session) {
  setObjectName(QStringLiteral("orientationBar"));
  auto* body = new QWidget(this);
  body->setFont(QFont(QStringLiteral("Helvetica"), 8));
  auto* column = new QVBoxLayout(body);

  column->addWidget(Text("Marker Info", body));
  table_ = new MyTable(body, 0, kColumns);
  table_->setHorizontalHeaderLabels({"name", "x", "y", "z", "id", "err_rad"});
  table_->horizontalHeaderItem(kErrorRadius)->setToolTip(QStringLiteral("result"));
  table_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                          QAbstractItemView::AnyKeyPressed);
  table_->setSelectionBehavior(QAbstractItemView::SelectItems);
  table_->setMinimumHeight(150);
  table_->horizontalHeader()->setMinimumSectionSize(30);
  connect(table_, &QTableWidget::cellChanged, this, &OrientationBar::sl_ValueChanged);
  column->addWidget(table_);

  auto* files = new QHBoxLayout;
  auto* create = new QPushButton(QStringLiteral("Create"), body);
  connect(create, &QPushButton::clicked, this, &OrientationBar::sl_CreateRB);
  auto* save = new QToolButton(body);
  save->setIcon(LoadPixmap(QStringLiteral("save.png")));
  save->setToolTip(QStringLiteral("Save rigid body"));
  connect(save, &QToolButton::clicked, this, &OrientationBar::sl_Save);
  auto* load = new QToolButton(body);
  load->setIcon(LoadPixmap(QStringLiteral("load.png")));
  load->setToolTip(QStringLiteral("Load rigid body"));
  connect(load, &QToolButton::clicked, this, &OrientationBar::sl_Load);
  files->addWidget(create);
  files->addWidget(save);
  files->addWidget(load);
  files->addStretch();
  column->addLayout(files);
  column->addWidget(new Separator(body));

  auto* count = new QHBoxLayout;
  count->addWidget(Text("Marker Count:", body));
  count_ = new QLineEdit(QStringLiteral("4"), body);
  count_->setMaximumWidth(40);
  connect(count_, &QLineEdit::returnPressed, this, &OrientationBar::sl_MarkerCount);
  count->addWidget(count_);
  count->addWidget(Text("the Alignment obj.", body));
  count->addStretch();
  column->addLayout(count);
  column->addWidget(new Separator(body));

  column->addWidget(Text("Specify axes", body));
  auto* axes = new QHBoxLayout;
  // The first names the body's up axis, the second its "right" and the
  // third, negated, its "away" axis; the defaults give the identity.
  static const char* kLabels[3] = {"", "right", "away"};
  static const int kDefaults[3] = {1, 0, 5};
  for (int i = 0; i < 3; ++i) {
    axes_[i] = new QComboBox(body);
    axes_[i]->addItems({"x", "y", "z", "-x", "-y", "-z"});
    axes_[i]->setCurrentIndex(kDefaults[i]);
    connect(axes_[i], &QComboBox::activated, this, &OrientationBar::sl_Transform);
    axes->addWidget(axes_[i]);
    if (*kLabels[i]) axes->addWidget(Text(kLabels[i], body));
  }
  axes->addStretch();
  column->addLayout(axes);
  column->addWidget(new Separator(body));

  auto* test = new QHBoxLayout;
  auto* testButton = new QPushButton(QStringLiteral("Test"), body);
  connect(testButton, &QPushButton::clicked, this, &OrientationBar::sl_Test);
  test->addWidget(testButton);
  test->addWidget(Text("stationary jitter", body));
  test->addWidget(Text(" for ", body));
  time_ = Text("000:00.00", body);
  test->addWidget(time_);
  test->addWidget(Text("seconds ", body));
  test->addStretch();
  column->addLayout(test);
  column->addStretch();
  setWidget(body);
  sl_MarkerCount();
}

void OrientationBar::setMarkers(const std::vector<AlignBodyMarker>& markers) {
  markers_ = markers;
  count_->setText(QString::number(markers_.size()));
  fillTable();
}

void OrientationBar::fillTable() {
  filling_ = true;
  table_->clearContents();
  table_->setRowCount(static_cast<int>(markers_.size()));
  for (int row = 0; row < table_->rowCount(); ++row) {
    const AlignBodyMarker& m = markers_[row];
    const auto coordinate = [&](uint32_t bit, float v) {
      return (m.given & bit) ? QString::number(v) : QString();
    };
    const QString cells[kColumns] = {QString::fromStdString(m.name), coordinate(AlignBodyMarker::kX, m.x),
                                     coordinate(AlignBodyMarker::kY, m.y), coordinate(AlignBodyMarker::kZ, m.z),
                                     QString::number(m.number), QString()};
    for (int c = 0; c < kColumns; ++c) {
      auto* item = new QTableWidgetItem(cells[c]);
      if (c == kErrorRadius) item->setFlags(item->flags() & ~Qt::ItemIsEditable);
      table_->setItem(row, c, item);
    }
  }
  table_->resizeColumnsToContents();
  filling_ = false;
}

void OrientationBar::sl_ValueChanged(int row, int column) {
  if (filling_ || row < 0 || row >= static_cast<int>(markers_.size())) return;
  AlignBodyMarker& m = markers_[row];
  const QString text = table_->item(row, column) ? table_->item(row, column)->text() : QString();
  if (column == kName) {
    m.name = text.toStdString();
  } else if (column >= kX && column <= kZ) {
    const uint32_t bit = 1u << (column - kX);
    float* value[] = {&m.x, &m.y, &m.z};
    if (text.isEmpty()) {
      m.given &= ~bit;
    } else {
      m.given |= bit;
      *value[column - kX] = std::strtof(text.toUtf8().constData(), nullptr);
    }
  } else if (column == kNumber) {
    m.number = std::strtod(text.toUtf8().constData(), nullptr);  // leading number, else 0
  }
}

bool OrientationBar::sl_Transform(int) {
  Vec3 a[3];
  for (int i = 0; i < 3; ++i) a[i] = axisVector(axes_[i]->currentIndex());
  a[2].scale(-1);
  if (dot(a[1], a[0]) != 0 || dot(a[1], a[2]) != 0 || dot(a[2], a[0]) != 0) return false;
  // Columns: where the body's X, Y and Z axes go.
  orientation_ = {a[1][0], a[1][1], a[1][2], 0, a[0][0], a[0][1], a[0][2], 0,
                  a[2][0], a[2][1], a[2][2], 0, 0,       0,       0,       1};
  if (onOrientation) onOrientation();
  return true;
}

void OrientationBar::sl_CreateRB() {
  if (sl_Transform()) emit sg_CreateRB();
}

void OrientationBar::sl_MarkerCount() {
  bool ok = false;
  const int n = count_->text().toInt(&ok, 10);
  if (!ok || !AlignMarkerCountOk(n)) return;
  markers_.resize(n);
  fillTable();
}

void OrientationBar::sl_Test() {
  if (!jitter_.running()) {
    if (markers_.empty()) return;
    emit sg_EnableRB();
    testClock_.start();
    jitter_.Start(kBodyTrackerId, static_cast<int>(markers_.size()));
    showElapsed();
    return;
  }
  showElapsed();
  const std::vector<std::optional<double>> radii = jitter_.Stop();
  bool any = false;
  for (const auto& r : radii) any = any || r.has_value();
  if (!any) {
    std::printf("calulation of error radius failed...\n");
    return;
  }
  // In millimetres, whatever the session's scale.
  const double toMm = session_ && session_->scale > 0 ? 1.0 / session_->scale : 1.0;
  for (size_t row = 0; row < radii.size() && static_cast<int>(row) < table_->rowCount(); ++row)
    if (radii[row]) table_->item(static_cast<int>(row), kErrorRadius)
                        ->setText(QString::number(*radii[row] * toMm, 'f', 4));
  table_->resizeColumnsToContents();
}

void OrientationBar::showElapsed() {
  const qint64 ms = testClock_.isValid() ? testClock_.elapsed() : 0;
  char text[32];
  std::snprintf(text, sizeof text, "%03d:%02d.%.02d", static_cast<int>(ms / 60000),
                static_cast<int>(ms / 1000 % 60), static_cast<int>(ms / 10 % 100));
  time_->setText(QString::fromLatin1(text));
}

void OrientationBar::processFrame() {
  if (!jitter_.running() || !session_) return;
  jitter_.Collect(session_->markers);
  showElapsed();
}

bool OrientationBar::saveBody(const std::string& fileName) const {
  return SaveFileAtomically(fileName, FormatAlignBody(markers_));
}

bool OrientationBar::loadBody(const std::string& fileName) {
  const std::optional<std::string> text = ReadTextFile(fileName);
  if (!text) return false;
  const std::vector<AlignBodyMarker> read = ParseAlignBody(*text);
  if (read.empty()) return false;
  setMarkers(read);
  return true;
}

void OrientationBar::sl_Save() {
  const QString file =
      chooseSaveFile ? chooseSaveFile()
                     : QFileDialog::getSaveFileName(this, QStringLiteral("Choose a filename to save under"),
                                                    QString(), QStringLiteral("Rigid Body File (*%1)").arg(".rb"));
  if (file.isEmpty()) return;
  if (QFileInfo::exists(file)) {
    const bool overwrite =
        confirmOverwrite
            ? confirmOverwrite(file)
            : QMessageBox::question(
                  this, QStringLiteral("Overwrite File?"),
                  QStringLiteral("A file called %1 already exists.Do you want to overwrite it?").arg(file),
                  QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
    if (!overwrite) return;
  }
  if (!saveBody(file.toStdString()))
    std::printf("error: OrientationBar::sl_Save(): cannot write %s\n", file.toUtf8().constData());
}

void OrientationBar::sl_Load() {
  const QString file = chooseLoadFile ? chooseLoadFile()
                                      : QFileDialog::getOpenFileName(this, QStringLiteral("Choose a File to open"),
                                                                     QString(), QStringLiteral("Rigid Body Files (*.rb)"));
  if (file.isEmpty()) return;
  if (!loadBody(file.toStdString()))
    std::printf("error: OrientationBar::sl_Load(): no markers in %s\n", file.toUtf8().constData());
}

std::string OrientationBar::defaultsFileName() {
  const char* home = std::getenv("HOME");
  return home ? std::string(home) + "/.default.sav" : std::string(".default.sav");
}

void OrientationBar::loadDefaults(const std::string& fileName) {
  const std::optional<std::string> text = ReadTextFile(fileName);
  if (!text) return;
  const OrientationDefaults d = ParseOrientationDefaults(*text);
  for (const std::string& line : d.unknown) std::fprintf(stderr, "unknown configuration: %s\n", line.c_str());
  if (d.markerCount) {
    count_->setText(QString::number(*d.markerCount));
    sl_MarkerCount();
  }
  if (d.axes) {
    for (int i = 0; i < 3; ++i) axes_[i]->setCurrentIndex((*d.axes)[i]);
    sl_Transform();
  }
}

bool OrientationBar::saveDefaults(const std::string& fileName) const {
  const std::array<int, 3> axes = {axes_[0]->currentIndex(), axes_[1]->currentIndex(), axes_[2]->currentIndex()};
  return SaveFileAtomically(fileName, FormatOrientationDefaults(static_cast<int>(markers_.size()), axes));
}
