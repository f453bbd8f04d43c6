#pragma once

#include "../../support/Dice.h"

#include <string>
#include <string_view>

namespace Config {

/// A statement of the language: of a form, in which a {word} stands for any form of that name, all blanks
/// drawn. Most of them are right; with `spoiled` there are also numbers beyond their borders and the like.
std::string randomForm(std::string_view form, TestSupport::Dice& dice, bool spoiled = false);

/// Lists, interfaces and so on, a few statements below each other. `spoiled`: some lines are `mutated`.
std::string randomText(TestSupport::Dice& dice, bool spoiled);

/// Changes a line at a few places: octets, words, cuts.
std::string mutated(std::string line, TestSupport::Dice& dice);

}  // namespace Config
