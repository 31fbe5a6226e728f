#pragma once

#include <string>
#include <string_view>

namespace nulo::service {

/// What a speech model writes although nobody said it. All are UTF-8, in and out.

/// Without marks of what is no speech: "[Music]", "*sighs*", "♪", and what stands in round brackets
/// where it names a sound ("(rires)"); other brackets may be meant.
std::string withoutMarks(std::string_view text);

/// With what is repeated without an end written once: the same stretch, of up to 120 characters, at
/// least five times in a row and sixty characters long. Nobody says so; a model that has lost its
/// way does, to the end of its room.
std::string withoutEndlessRepetition(std::string_view text);

/// Whether the text is nothing but a sentence with which films end, such as models learnt to write
/// where nobody speaks. Somebody may say it all the same.
bool isFilmEnding(std::string_view text);

}  // namespace nulo::service
