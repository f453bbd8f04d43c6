#include "CaptureBytes.h"
#include "Run.h"

#include <agent/ConfigFiles.h>
#include <gmock/gmock.h>

#include <filesystem>

namespace {

using namespace TestSupport;
namespace fs = std::filesystem;

TEST(ConfigFiles, EachFileOfADirectoryIsASourceAndSomeFilesAreNone) {
  const TempDir dir;
  writeFile(dir / "b", "ip access-list B\n");
  writeFile(dir / "a", "ip access-list A\n");
  writeFile(dir / ".hidden", "nonsense\n");
  writeFile(dir / "a~", "nonsense\n");
  fs::create_directory(dir / "sub");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({}, dir.path()), testing::IsEmpty());
  ASSERT_EQ(files.inputs().size(), 2u);
  EXPECT_TRUE(files.inputs().at("a").lists.contains({Acl::AclType::ip, "A"}));
  EXPECT_TRUE(files.inputs().at("b").lists.contains({Acl::AclType::ip, "B"}));
}

TEST(ConfigFiles, AnEmptyFileIsAConfiguration) {
  const TempDir dir;
  writeFile(dir / "a", "");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({dir / "a", "/dev/null"}, ""), testing::IsEmpty());
  EXPECT_EQ(files.commandLine(), Config::Model());
}

TEST(ConfigFiles, ALinkToNowhereIsReported) {
  const TempDir dir;
  fs::create_symlink(dir / "nowhere", dir / "link");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({}, dir.path()),
              testing::ElementsAre((dir / "link") + ": No such file or directory"));
}

}  // namespace
