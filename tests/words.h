// The words of the case files: preparations of a board and commands that run on it.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/fake_board.h"

using Words = std::vector<std::string>;

/// A line that is written wrongly. Its text says what is wrong and what was expected.
struct WrongLine : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Splits a line at its blanks; quotes hold blanks together. \n \r \t \e \s \0 \\ \" and \xHH stand
/// for bytes, {TEXT*COUNT} for a repetition. A word that begins with '+' or '$' needs quotes.
Words WordsIn(const std::string &line);

/// The number that the whole word is, in decimal, or with 0x in hexadecimal.
long long NumberIn(const std::string &word, int base = 0);

/// The same, if the type can hold it.
template<typename Type>
Type NumberAs(const std::string &word)
{
    const long long number = NumberIn(word);
    if (!std::in_range<Type>(number)) {
        throw WrongLine("'" + word + "' is out of range");
    }
    return static_cast<Type>(number);
}

/// Compares the count of words with a usage such as "NAME SIZE [TEXT] PART...".
void CheckCount(const std::string &usage, const Words &words);

/// Runs the words after a '+'.
void Prepare(FakeBoard &board, const Words &words);

/// Whether the line has a '$'.
bool Runs(const Words &line);

/// Runs the words after each '+' and '$' of a line, from left to right, in one process. The
/// transcript shows the result of each operation as "= 0", and of an applet if it is not 0.
/// All of these throw WrongLine.
void RunLine(FakeBoard &board, const Words &line);
