#include <agent/control/Request.h>
#include <gtest/gtest.h>

namespace {

using Agent::Request;

TEST(ControlRequest, IsOneFlatObjectAndNothingElse) {
  struct Row {
    const char* why;
    std::string line;
    const char* wrong;  ///< a part of the complaint; empty: it is read
  };
  std::string many = "{";
  for (int i = 0; i < 17; ++i) many += "\"m" + std::to_string(i) + "\":1,";
  many.back() = '}';
  for (const Row& row : {
           Row{"members of every kind", R"({"do":"show","id":7,"dryRun":true,"x":null,"y":-1,"z":1.5})", ""},
           Row{"blanks around it", "  {\"do\":\"x\"} ", ""},
           Row{"an empty object asks for nothing, which is said later", "{}", ""},
           Row{"an empty line", "", "no JSON"},
           Row{"no JSON at all", "GET / HTTP/1.1", "no JSON"},
           Row{"cut short", R"({"do":"sh)", "no JSON"},
           Row{"something behind it", R"({"do":"x"} {})", "no JSON"},
           Row{"bytes that are no text", "{\"do\":\"\xff\xfe\"}", "no JSON"},
           Row{"a number", "17", "no object"},
           Row{"an array of requests", R"([{"do":"x"}])", "an array"},
           Row{"a member that is an array", R"({"do":["x"]})", "an array"},
           Row{"a member that is an object", R"({"do":{"do":"x"}})", "an object inside"},
           Row{"depth without end costs nothing", std::string(60000, '['), "an array"},
           Row{"a member that comes twice", R"({"do":"x","do":"y"})", "twice"},
           Row{"more members than any request has", many, "too many"},
       }) {
    std::string wrong;
    const auto request = Request::read(row.line, &wrong);
    EXPECT_EQ(request.has_value(), *row.wrong == '\0') << row.why << ": " << wrong;
    EXPECT_NE(wrong.find(row.wrong), std::string::npos) << row.why << ": " << wrong;
  }
}

using Agent::MemberKind;
using Agent::RequestMember;

constexpr RequestMember declared[] = {
    {"t", MemberKind::text, "", "a text that is needed"},
    {"a", MemberKind::name, "null", "a name"},
    {"y", MemberKind::flag, "true", "a flag that is on"},
    {"f", MemberKind::flag, "false", "a flag that is off"},
    {"n", MemberKind::number, "null", "a number"},
    {"x", MemberKind::anything, "null", "anything"},
};

Request read(const std::string& line) {
  std::string wrong;
  auto request = Request::read(line, &wrong);
  EXPECT_TRUE(request) << line << ": " << wrong;
  return request.value_or(Request());
}

TEST(ControlRequest, EveryMemberIsAsDeclaredOrNamed) {
  struct Row {
    const char* why;
    const char* line;
    const char* wrong;  ///< empty: nothing is
  };
  for (const Row& row : {
           Row{"everything", R"({"t":"","a":"b","y":true,"f":false,"n":4294967295,"x":1.5})", ""},
           Row{"what is needed", R"({"t":"some"})", ""},
           Row{"anything may be null", R"({"t":"","x":null})", ""},
           Row{"without what is needed", R"({"a":"b"})",
               "the member \"t\" is missing: a text that is needed"},
           Row{"a member that there is not", R"({"t":"","tt":""})", "there is no member \"tt\""},
           Row{"a name has a case", R"({"t":"","Y":true})", "there is no member \"Y\""},
           Row{"a number for a text", R"({"t":5})", "the member \"t\" is to be a text, found 5"},
           Row{"null for a text", R"({"t":null})", "the member \"t\" is to be a text, found null"},
           Row{"no name at all", R"({"t":"","a":""})",
               "the member \"a\" is to be a text that is not empty, found an empty text"},
           Row{"a number for a name", R"({"t":"","a":5})",
               "the member \"a\" is to be a text that is not empty, found 5"},
           Row{"a text for a flag", R"({"t":"","f":"true"})",
               "the member \"f\" is to be true or false, found a text"},
           Row{"a number for a flag", R"({"t":"","f":1})",
               "the member \"f\" is to be true or false, found 1"},
           Row{"null for a flag", R"({"t":"","f":null})",
               "the member \"f\" is to be true or false, found null"},
           Row{"a number that is too large", R"({"t":"","n":4294967296})",
               "the member \"n\" is to be a whole number from 0 to 4294967295, found 4294967296"},
           Row{"a number below zero", R"({"t":"","n":-1})",
               "the member \"n\" is to be a whole number from 0 to 4294967295, found -1"},
           Row{"a number that is not whole", R"({"t":"","n":1.5})",
               "the member \"n\" is to be a whole number from 0 to 4294967295, found 1.5"},
           Row{"a text for a number", R"({"t":"","n":"7"})",
               "the member \"n\" is to be a whole number from 0 to 4294967295, found a text"},
       }) {
    EXPECT_EQ(read(row.line).check(declared).value_or(""), row.wrong) << row.why;
  }
}

TEST(ControlRequest, WhatWasNotSentIsAsDeclared) {
  Request sent = read(R"({"t":"text","a":"name","y":false,"f":true,"n":7})");
  ASSERT_EQ(sent.check(declared), std::nullopt);
  EXPECT_EQ(sent.text("t"), "text");
  EXPECT_EQ(sent.text("a"), "name");
  EXPECT_FALSE(sent.flag("y"));
  EXPECT_TRUE(sent.flag("f"));
  EXPECT_EQ(sent.number("n"), 7u);
  EXPECT_TRUE(sent.has("y"));

  Request least = read(R"({"t":""})");
  ASSERT_EQ(least.check(declared), std::nullopt);
  EXPECT_EQ(least.text("a"), "");
  EXPECT_TRUE(least.flag("y"));
  EXPECT_FALSE(least.flag("f"));
  EXPECT_EQ(least.number("n"), std::nullopt);
  EXPECT_FALSE(least.has("y"));
}

TEST(ControlRequestDeathTest, AskingForWhatIsNotDeclaredIsABrokenInvariant) {
  Request request = read(R"({"t":"text"})");
  EXPECT_DEATH(static_cast<void>(request.text("t")), "a member t that is asked for is declared so")
      << "nothing was checked";
  ASSERT_EQ(request.check(declared), std::nullopt);
  EXPECT_DEATH(static_cast<void>(request.text("none")), "a member none that is asked for is declared so");
  EXPECT_DEATH(static_cast<void>(request.flag("t")), "a member t that is asked for is declared so");
}

}  // namespace
