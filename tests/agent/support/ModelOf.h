#pragma once

#include <agent/config/Reader.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace TestSupport {

/// What a text without mistakes says.
inline Config::Model modelOf(const std::string& text) {
  auto result = Config::read({{"t", text}});
  for (const auto& mistake : result.mistakes) ADD_FAILURE() << mistake.str();
  return std::move(result.model).value_or(Config::Model());
}

}  // namespace TestSupport
