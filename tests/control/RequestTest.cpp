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

TEST(ControlRequest, MembersAreHadByKind) {
  std::string wrong;
  const auto request = Request::read(R"({"t":"text","n":7,"yes":true,"no":false})", &wrong);
  ASSERT_TRUE(request) << wrong;
  EXPECT_EQ(request->text("t"), "text");
  EXPECT_EQ(request->text("n"), "") << "a number is no text";
  EXPECT_EQ(request->number("n"), 7u);
  EXPECT_EQ(request->number("t"), std::nullopt);
  EXPECT_TRUE(request->flag("yes"));
  EXPECT_FALSE(request->flag("no"));
  EXPECT_FALSE(request->flag("n")) << "only true is true";
}

}  // namespace
