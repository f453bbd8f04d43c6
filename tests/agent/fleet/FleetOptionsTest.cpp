#include <agent/fleet/FleetOptions.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Agent::placeOf;
using testing::HasSubstr;

TEST(FleetOptions, WarnsOfAPasswordThatOthersCanRead) {
  const struct {
    std::vector<std::string> endpoints;
    const char* user;
    const char* wanted;
  } cases[] = {
      {{"http://192.0.2.1:2379"}, "u", "http://192.0.2.1:2379: whoever listens reads the password"},
      {{"https://a:2379", "http://b:2379"}, "u", "http://b:2379: "},
      {{"http://localhost.example:2379"}, "u", "http://localhost.example:2379: "},
      {{"http://192.0.2.1:2379"}, "", ""},
      {{"https://192.0.2.1:2379"}, "u", ""},
      {{"http://127.0.0.1:2379", "http://localhost:2379", "http://[::1]:2379"}, "u", ""},
  };
  for (const auto& one : cases) {
    const std::string why = Agent::whyReadable({.endpoints = one.endpoints, .user = one.user});
    EXPECT_THAT(why, HasSubstr(one.wanted)) << one.endpoints[0];
    EXPECT_EQ(why.empty(), *one.wanted == 0) << one.endpoints[0];
  }
}

TEST(FleetOptions, KeepsAPasswordToItself) {
  if (!Agent::Http::whyNot().empty()) GTEST_SKIP() << Agent::Http::whyNot();
  const std::string path = testing::TempDir() + "velo-fleet-login";
  std::ofstream(path) << "user:a:b\n";
  std::string wrong;
  ASSERT_TRUE(placeOf({.store = "https://a:1"}, &wrong)) << wrong;
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1) << "there is no secret";
  const auto place = placeOf({.store = "https://a:1", .login = path}, &wrong);
  const int isDumpable = prctl(PR_GET_DUMPABLE);
  prctl(PR_SET_DUMPABLE, 1);
  ASSERT_TRUE(place) << wrong;
  EXPECT_EQ(place->user, "user");
  EXPECT_EQ(place->password, "a:b");
  EXPECT_EQ(isDumpable, 0);
  std::remove(path.c_str());
}

}  // namespace
