// The version record.
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

#include <thread>

#include "qorcvmx.h"

namespace {

TEST(Version, AllFields) {
  const QorLibraryVersion* version = qorcvGetLibVersion();
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(version->major, 6);
  EXPECT_EQ(version->minor, 1);
  EXPECT_EQ(version->buildMajor, 137);
  EXPECT_EQ(version->buildNumber, 831);
  EXPECT_EQ(memcmp(version->target, "mx\0\0", 4), 0);
  EXPECT_STREQ(version->libraryName, "libqorcvmx.so.6.1");
  EXPECT_STREQ(version->buildDate, "Mar 17 2010");
}

TEST(Version, LastNumberOfTheTextIsNotTheBuildNumber) {
  EXPECT_STREQ(qorcvGetLibVersion()->versionText, "6.1 build 137.56");
}

TEST(Version, FieldsLieInOrder) {
  EXPECT_EQ(offsetof(QorLibraryVersion, major), 0u);
  EXPECT_EQ(offsetof(QorLibraryVersion, minor), 4u);
  EXPECT_EQ(offsetof(QorLibraryVersion, buildMajor), 8u);
  EXPECT_EQ(offsetof(QorLibraryVersion, buildNumber), 12u);
  EXPECT_EQ(offsetof(QorLibraryVersion, target), 16u);
  EXPECT_EQ(offsetof(QorLibraryVersion, libraryName), 24u);
  EXPECT_EQ(offsetof(QorLibraryVersion, versionText), 32u);
  EXPECT_EQ(offsetof(QorLibraryVersion, buildDate), 40u);
}

TEST(Version, SamePointerOnEachCallFromAnyThread) {
  const QorLibraryVersion* here = qorcvGetLibVersion();
  EXPECT_EQ(qorcvGetLibVersion(), here);
  const QorLibraryVersion* there = nullptr;
  std::thread([&] { there = qorcvGetLibVersion(); }).join();
  EXPECT_EQ(there, here);
}

}  // namespace
