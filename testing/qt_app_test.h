// A test fixture base that gives a test suite a QApplication for its run
// (widgets need one) and removes it afterwards. Header-only: only Qt tests
// include it, the test helper library itself stays free of Qt.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>

namespace zortest {

class QtAppTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    static int argc = 1;
    static char name[] = "zor_test";
    static char* argv[] = {name, nullptr};
    if (!QApplication::instance()) app_ = new QApplication(argc, argv);
  }
  static void TearDownTestSuite() {
    delete app_;
    app_ = nullptr;
  }
  static inline QApplication* app_ = nullptr;
};

}  // namespace zortest
