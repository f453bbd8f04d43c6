#include <agent/metrics/MetricsOptions.h>
#include <gmock/gmock.h>

#include <CLI/CLI.hpp>

namespace {

/// What `--metrics` makes of a text, or what it says is wrong.
std::string address(const std::string& text) {
  CLI::App app;
  Agent::MetricsOptions options;
  Agent::addMetrics(app, options);
  try {
    app.parse("--metrics " + text);
  } catch (const CLI::ParseError& error) {
    return error.what();
  }
  return options.address;
}

TEST(MetricsOptions, WithoutAnAddressOnlyThisMachineIsAnswered) {
  EXPECT_EQ(address("9464"), "127.0.0.1:9464");
  EXPECT_EQ(address(":9464"), "127.0.0.1:9464");
  EXPECT_EQ(address("0.0.0.0:9464"), "0.0.0.0:9464");
  EXPECT_EQ(address("[::1]:80"), "[::1]:80");
  EXPECT_EQ(address("192.0.2.1:0"), "192.0.2.1:0");
}

TEST(MetricsOptions, WhatIsNoAddressIsNamed) {
  for (const char* text :
       {"x", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:1s", "1,2", "80,90", "-1"})
    EXPECT_THAT(address(text), testing::HasSubstr("is not [ADDRESS:]PORT")) << text;
  for (const char* text : {"localhost:80", "::1:80", "[127.0.0.1]:80", "[::1:80", "127.0.0.1:80,0.0.0.0:80"})
    EXPECT_THAT(address(text), testing::HasSubstr("is no address")) << text;
}

}  // namespace
