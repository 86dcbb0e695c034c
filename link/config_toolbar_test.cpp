// The "Settings" dock: the .mcclient file read and written as the operator
// leaves it, the settings record it hands the session, and discovery of a
// running zord.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QSignalSpy>
#include <QSpinBox>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "link/config_toolbar.h"
#include "testing/zord_process.h"
#include "testing/qt_app_test.h"

namespace {


std::string ReadAll(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteAll(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

QStringList Entries(const QComboBox* box) {
  QStringList out;
  for (int i = 0; i < box->count(); ++i) out << box->itemText(i);
  return out;
}

// --- The file on its own ------------------------------------------------------

struct Read {
  std::optional<McclientContents> contents;
  std::string info, errors;
};
Read ReadText(const zortest::TempDir& dir, const std::string& text) {
  WriteAll(dir.File(".mcclient"), text);
  std::ostringstream info, errors;
  Read r{ReadMcclient(dir.File(".mcclient"), info, errors), "", ""};
  r.info = info.str();
  r.errors = errors.str();
  return r;
}

TEST(McclientTest, ServerLinesPlainAndAliased) {
  zortest::TempDir dir;
  const Read r = ReadText(dir,
                          "# comment\n\nserver:  mybox\nserver: 10.0.0.5 lab\n"
                          "server: 10.0.0.6 big lab\nserver: other\n");
  ASSERT_TRUE(r.contents);
  EXPECT_EQ(r.contents->servers, (std::vector<std::string>{"mybox", "lab", "big lab", "other"}));
  EXPECT_EQ(r.contents->aliases.at("lab"), "10.0.0.5");
  EXPECT_EQ(r.contents->aliases.at("big lab"), "10.0.0.6");
  EXPECT_EQ(r.contents->aliases.count("mybox"), 0u);
  EXPECT_EQ(r.info, "loading alias: 10.0.0.5(lab)\nloading alias: 10.0.0.6(big lab)\n");
  EXPECT_EQ(r.errors, "");
}

TEST(McclientTest, KeysAndTheirOddValues) {
  zortest::TempDir dir;
  const Read r = ReadText(dir, "mode: 1 2\n");  // three words: ignored without a word
  EXPECT_FALSE(r.contents->modeIndex);
  EXPECT_EQ(r.errors, "");
  const std::pair<const char*, int> modes[] = {{"Default", 0}, {"3", 3}};
  for (const auto& [value, index] : modes)
    EXPECT_EQ(ReadText(dir, std::string("mode: ") + value + "\n").contents->modeIndex, index);
  EXPECT_EQ(ReadText(dir, "frequency: 100\n").contents->frequencyIndex, 0);
  EXPECT_EQ(ReadText(dir, "frequency: 60\n").contents->frequencyIndex, 3);
  EXPECT_EQ(ReadText(dir, "postprocess: On\n").contents->postprocessIndex, 0);
  EXPECT_EQ(ReadText(dir, "interpolate: 12\r\n").contents->interpolate, 12);
}

TEST(McclientTest, UnknownKeysAndLinesAreReportedAndSkipped) {
  zortest::TempDir dir;
  const Read r = ReadText(dir, "foo: 1\nlonely\nmode: 2\n");
  EXPECT_EQ(r.errors, "unknown token: foo: in " + dir.File(".mcclient") +
                          "\nunknown configuration: lonely\n");
  EXPECT_EQ(r.contents->modeIndex, 2);
  std::ostringstream ignored;
  EXPECT_FALSE(ReadMcclient(dir.File("missing"), ignored, ignored));
}

TEST(McclientTest, WritingSkipsTheFindEntryAndTheCurrentServerTwice) {
  McclientChoices c;
  c.currentServer = "lab";
  c.serverEntries = {"mybox", "lab", "<find servers>"};
  c.aliases = {{"lab", "10.0.0.5"}};
  c.modeText = "Default";
  c.frequencyText = "240";
  c.postprocessIndex = 1;
  c.interpolate = 3;
  EXPECT_EQ(FormatMcclient(c),
            "server: 10.0.0.5 lab\nserver:  mybox\nmode: Default\nfrequency: 240\n"
            "postprocess: 1\ninterpolate: 3\n");
  c.currentServer = "<find servers>";
  EXPECT_EQ(FormatMcclient(c).rfind("server: 10.0.0.5 lab\nmode:", 0), std::string::npos);
  EXPECT_EQ(FormatMcclient(c).rfind("server:  mybox\nserver: 10.0.0.5 lab\nmode:", 0), 0u);
}

// --- The dock -----------------------------------------------------------------

class ConfigToolbarTest : public zortest::QtAppTest {
 protected:
  // The dock reads and writes $HOME/.mcclient: each test gets a fresh home.
  void SetUp() override { setenv("HOME", home_.path().c_str(), 1); }
  std::unique_ptr<ConfigToolbar> Make(ConfigToolbar::Options options = {}) {
    testing::internal::CaptureStdout();
    auto t = std::make_unique<ConfigToolbar>(nullptr, options);
    out_ = testing::internal::GetCapturedStdout();
    return t;
  }
  zortest::TempDir home_;
  std::string out_;
};

TEST_F(ConfigToolbarTest, BuiltWithoutAFileCommandLineServerFirst) {
  auto t = Make();
  EXPECT_EQ(Entries(t->serverBox()), QStringList({"localhost", "<find servers>"}));
  EXPECT_EQ(t->settings().server, "localhost");
  // A server from the command line comes first.
  t->setFirstServer("lab");
  EXPECT_EQ(Entries(t->serverBox()), QStringList({"lab", "localhost", "<find servers>"}));
  t->setFirstServer("localhost");
  EXPECT_EQ(Entries(t->serverBox()), QStringList({"localhost", "lab", "<find servers>"}));
  EXPECT_EQ(t->serverBox()->currentIndex(), 0);
}

TEST_F(ConfigToolbarTest, FileFillsTheBoxesAndTheRecord) {
  WriteAll(home_.File(".mcclient"),
           "server: 10.0.0.5 lab\nserver:  mybox\nmode: 3\nfrequency: 120\npostprocess: 1\n"
           "interpolate: 7\n");
  auto t = Make();
  EXPECT_EQ(Entries(t->serverBox()), QStringList({"lab", "mybox", "<find servers>"}));
  EXPECT_EQ(t->settings().server, "10.0.0.5");  // the alias's address
  EXPECT_EQ(t->settings().flags, 0x310u);
  EXPECT_EQ(t->settings().frequency, 120.0f);
  EXPECT_EQ(t->settings().interpolate, 7);

  t->serverBox()->setCurrentIndex(1);
  ASSERT_TRUE(t->GetSettings());
  EXPECT_EQ(t->settings().server, "mybox");
}

TEST_F(ConfigToolbarTest, SaveWritesWhatLoadReadsBack) {
  auto t = Make();
  t->serverBox()->setEditText("studio b");
  t->modeBox()->setCurrentIndex(2);
  t->frequencyBox()->setCurrentIndex(3);
  t->interpolateBox()->setValue(5);
  testing::internal::CaptureStdout();
  t->sl_Save();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "saving current config: " + home_.File(".mcclient") + "\n");
  EXPECT_EQ(ReadAll(home_.File(".mcclient")),
            "server:  studio b\nserver:  localhost\nmode: 2\nfrequency: 60\npostprocess: 0\n"
            "interpolate: 5\n");
  auto again = Make();  // a name with blanks is no alias
  EXPECT_EQ(Entries(again->serverBox()), QStringList({"studio b", "localhost", "<find servers>"}));
  EXPECT_EQ(again->settings().server, "studio b");
  EXPECT_EQ(again->settings().flags, 0x200u);
  EXPECT_EQ(again->settings().frequency, 60.0f);
}

TEST_F(ConfigToolbarTest, SlaveKeepsRateModeAndInterpolation) {
  auto t = Make();
  t->modeBox()->setCurrentIndex(4);
  t->frequencyBox()->setCurrentIndex(4);
  ASSERT_TRUE(t->GetSettings());
  EXPECT_EQ(t->settings().flags, 0x400u);
  t->slaveBox()->click();
  EXPECT_FALSE(t->modeBox()->isEnabled());
  t->modeBox()->setCurrentIndex(1);
  t->frequencyBox()->setCurrentIndex(0);
  ASSERT_TRUE(t->GetSettings());
  EXPECT_EQ(t->settings().flags, 0x400u);
  EXPECT_EQ(t->settings().frequency, 30.0f);
}

TEST_F(ConfigToolbarTest, AlternativeServerModeAndDisabledDock) {
  ConfigToolbar::Options options;
  options.alternativeServer = true;
  options.slaveSupport = false;
  auto t = Make(options);
  EXPECT_TRUE(t->slaveBox()->isHidden());
  t->postprocessBox()->setCurrentIndex(1);
  ASSERT_TRUE(t->GetSettings());
  EXPECT_EQ(t->settings().flags, 0xA00u);

  t->SetMode(2);
  EXPECT_EQ(t->settings().flags, 0xA00u);  // 0xA00 loses 0x200, then gains it back
  t->SetMode(0);
  EXPECT_EQ(t->settings().flags, 0x800u);

  t->serverBox()->setEditText("elsewhere");
  t->setConnectEnabled(false);
  EXPECT_FALSE(t->GetSettings());
  EXPECT_EQ(t->settings().server, "localhost");
  t->SetMode(1);
  EXPECT_EQ(t->settings().flags, 0xA00u);
}

TEST_F(ConfigToolbarTest, DiscoveryListsARunningZordByItsName) {
  zortest::ZordProcess zord({"--name", "Stage Left"});
  ASSERT_TRUE(zord.Start()) << zord.error();
  ConfigToolbar::Options options;
  options.scanPort = zord.discovery_port();
  auto t = Make(options);
  QSignalSpy found(t.get(), &ConfigToolbar::sg_ServersFound);
  t->serverBox()->setCurrentIndex(1);
  t->sl_ServerValueChanged(1);
  EXPECT_FALSE(t->serverBox()->isEnabled());  // busy, but the window goes on
  ASSERT_TRUE(found.wait(5000));
  EXPECT_EQ(found.first().first().toInt(), 1);
  EXPECT_EQ(Entries(t->serverBox()), QStringList({"Stage Left", "<find servers>"}));
  EXPECT_TRUE(t->serverBox()->isEnabled());
  ASSERT_TRUE(t->GetSettings());
  EXPECT_EQ(t->settings().server, zord.address());

  EXPECT_TRUE(CheckConnection(zord.address(), zord.discovery_port()));
  // The operator types a name, discovery answers with a number.
  const std::string port = zord.address().substr(zord.address().rfind(':'));
  EXPECT_TRUE(CheckConnection("localhost" + port, zord.discovery_port()));
  EXPECT_FALSE(CheckConnection("127.0.0.1:1", zord.discovery_port()));
}

TEST_F(ConfigToolbarTest, DiscoveryWithNobodyAnsweringOffersLocalhost) {
  ConfigToolbar::Options options;
  options.scanPort = zortest::FreePort();
  auto t = Make(options);
  t->serverBox()->setEditText("gone");
  QSignalSpy found(t.get(), &ConfigToolbar::sg_ServersFound);
  t->sl_ServerValueChanged(1);
  ASSERT_TRUE(found.wait(5000));
  EXPECT_EQ(found.first().first().toInt(), 0);
  EXPECT_EQ(Entries(t->serverBox()), QStringList({"localhost", "<find servers>"}));
  testing::internal::CaptureStdout();
  EXPECT_FALSE(CheckConnection("no such host.invalid", options.scanPort));
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("error: connection check failed: ret=", 0),
            0u);
}

}  // namespace
