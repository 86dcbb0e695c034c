// Build-time tool: draws the program's built-in images with QPainter and
// writes them as a C++ source file of the image collection (pixel data in
// qUncompress form), so that the icons live in code we can read and change.
//   make_images <output.cpp>
#include <QColor>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int kLampSize = 20;
constexpr int kToolSize = 24;

// Digits as strokes in a 6 x 10 box, so no font is needed at build time.
QPainterPath DigitPath(int digit) {
  QPainterPath p;
  switch (digit) {
    case 1:
      p.moveTo(1.5, 2.5);
      p.lineTo(3.5, 0);
      p.lineTo(3.5, 10);
      break;
    case 2:
      p.moveTo(0.5, 2.5);
      p.cubicTo(0.5, -0.8, 5.5, -0.8, 5.5, 2.5);
      p.cubicTo(5.5, 5, 0.5, 7, 0.5, 10);
      p.lineTo(5.8, 10);
      break;
    case 3:
      p.moveTo(0.5, 1.5);
      p.cubicTo(2, -0.5, 5.5, -0.3, 5.5, 2.4);
      p.cubicTo(5.5, 4.4, 3.8, 4.8, 2.2, 4.8);
      p.cubicTo(4.2, 4.8, 5.8, 5.6, 5.8, 7.4);
      p.cubicTo(5.8, 10.6, 1.6, 10.8, 0.2, 8.6);
      break;
    case 4:
      p.moveTo(4.2, 10);
      p.lineTo(4.2, 0);
      p.lineTo(0, 7);
      p.lineTo(6, 7);
      break;
  }
  return p;
}

// A round lamp with a number: lit in `on`, dimmed grey otherwise.
QImage Lamp(int digit, QColor on, bool lit) {
  QImage image(kLampSize, kLampSize, QImage::Format_ARGB32);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  const QColor body = lit ? on : QColor(150, 150, 150);
  QRadialGradient glow(QPointF(8, 7), 10);
  glow.setColorAt(0, lit ? body.lighter(160) : QColor(205, 205, 205));
  glow.setColorAt(1, lit ? body : QColor(130, 130, 130));
  painter.setPen(QPen(lit ? body.darker(170) : QColor(95, 95, 95), 1.2));
  painter.setBrush(glow);
  painter.drawEllipse(QRectF(1.5, 1.5, kLampSize - 3, kLampSize - 3));
  painter.translate(7, 5);
  painter.setPen(QPen(lit ? Qt::white : QColor(240, 240, 240), 1.7, Qt::SolidLine, Qt::RoundCap,
                      Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);
  painter.drawPath(DigitPath(digit));
  return image;
}

QImage Blank() {
  QImage image(kToolSize, kToolSize, QImage::Format_ARGB32);
  image.fill(Qt::transparent);
  return image;
}

// The live indicator: a dot with radio waves, green when streaming.
QImage Live(bool on) {
  QImage image = Blank();
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  const QColor c = on ? QColor(30, 170, 60) : QColor(140, 140, 140);
  painter.setPen(Qt::NoPen);
  painter.setBrush(c);
  painter.drawEllipse(QPointF(12, 12), 3.5, 3.5);
  painter.setPen(QPen(c, 2, Qt::SolidLine, Qt::RoundCap));
  painter.setBrush(Qt::NoBrush);
  for (int r : {7, 10}) {
    const QRectF box(12 - r, 12 - r, 2 * r, 2 * r);
    painter.drawArc(box, -45 * 16, 90 * 16);
    painter.drawArc(box, 135 * 16, 90 * 16);
  }
  if (!on) {  // struck through while disconnected
    painter.setPen(QPen(QColor(190, 40, 40), 2.2, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(4, 20), QPointF(20, 4));
  }
  return image;
}

QImage Pause() {
  QImage image = Blank();
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(QColor(40, 60, 110), 1));
  painter.setBrush(QColor(80, 110, 180));
  painter.drawRoundedRect(QRectF(6, 4.5, 4, 15), 1, 1);
  painter.drawRoundedRect(QRectF(14, 4.5, 4, 15), 1, 1);
  return image;
}

// A tray with an arrow into it (save) or out of it (load).
QImage TrayArrow(bool down) {
  QImage image = Blank();
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(QColor(70, 70, 80), 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);
  painter.drawPolyline(QPolygonF({QPointF(3.5, 14), QPointF(3.5, 20.5), QPointF(20.5, 20.5),
                                  QPointF(20.5, 14)}));
  const QColor arrow = down ? QColor(30, 120, 200) : QColor(210, 140, 20);
  painter.setPen(QPen(arrow.darker(140), 1));
  painter.setBrush(arrow);
  const double tip = down ? 17 : 2, base = down ? 10 : 9, tail = down ? 2 : 17;
  painter.drawPolygon(QPolygonF({QPointF(12, tip), QPointF(6.5, base), QPointF(9.5, base),
                                 QPointF(9.5, tail), QPointF(14.5, tail), QPointF(14.5, base),
                                 QPointF(17.5, base)}));
  return image;
}

struct Named {
  const char* name;
  QImage image;
};

std::vector<Named> AllImages() {
  std::vector<Named> all;
  const QColor alignColor(40, 110, 220), calibColor(40, 175, 60);
  const char* const apNames[3][2] = {{"ap1On.png", "ap1Off.png"},
                                     {"ap2On.png", "ap2Off.png"},
                                     {"ap3On.png", "ap3Off.png"}};
  for (int i = 0; i < 3; ++i) {
    all.push_back({apNames[i][0], Lamp(i + 1, alignColor, true)});
    all.push_back({apNames[i][1], Lamp(i + 1, alignColor, false)});
  }
  const char* const cpNames[4][2] = {{"cp1On.png", "cp1Off.png"},
                                     {"cp2On.png", "cp2Off.png"},
                                     {"cp3On.png", "cp3Off.png"},
                                     {"cp4On.png", "cp4Off.png"}};
  for (int i = 0; i < 4; ++i) {
    all.push_back({cpNames[i][0], Lamp(i + 1, calibColor, true)});
    all.push_back({cpNames[i][1], Lamp(i + 1, calibColor, false)});
  }
  all.push_back({"liveOn.png", Live(true)});
  all.push_back({"liveOff.png", Live(false)});
  all.push_back({"pause.png", Pause()});
  all.push_back({"save.png", TrayArrow(true)});
  all.push_back({"load.png", TrayArrow(false)});
  return all;
}

QByteArray CArray(const QByteArray& bytes) {
  QByteArray out;
  for (int i = 0; i < bytes.size(); ++i) {
    out += QByteArray::number(static_cast<unsigned char>(bytes[i])) + ",";
    if (i % 24 == 23) out += "\n    ";
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_images <output.cpp>\n");
    return 2;
  }
  // Painting needs no screen; the offscreen platform keeps the tool display-free.
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);

  QByteArray out =
      "// Generated by widgets/make_images.cpp at build time; do not edit.\n"
      "#include \"widgets/embedded_images.h\"\n\nnamespace {\n";
  QByteArray table = "const EmbeddedImage kImages[] = {\n";
  int index = 0;
  for (const Named& entry : AllImages()) {
    const QImage& image = entry.image;
    const QByteArray pixels(reinterpret_cast<const char*>(image.constBits()),
                            static_cast<int>(image.sizeInBytes()));
    const QByteArray packed = qCompress(pixels, 9);
    const QByteArray var = "kData" + QByteArray::number(index++);
    out += "const unsigned char " + var + "[] = {\n    " + CArray(packed) + "\n};\n";
    table += "    {\"" + QByteArray(entry.name) + "\", " + QByteArray::number(image.width()) + ", " +
             QByteArray::number(image.height()) + ", 32, nullptr, 0, true, " + var + ", " +
             QByteArray::number(packed.size()) + "},\n";
  }
  table += "    {nullptr, 0, 0, 0, nullptr, 0, false, nullptr, 0},  // end marker\n};\n";
  out += table + "}  // namespace\n\nconst EmbeddedImage* EmbeddedImages() { return kImages; }\n";

  QFile file(QString::fromLocal8Bit(argv[1]));
  if (!file.open(QIODevice::WriteOnly) || file.write(out) != out.size()) {
    std::fprintf(stderr, "make_images: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
