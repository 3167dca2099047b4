// The words of the case files: preparations of a board and commands that run on it.
#pragma once

#include <string>
#include <vector>

#include "tests/fake_board.h"

using Words = std::vector<std::string>;

/// Splits a line at its blanks; quotes hold blanks together. \n \r \t \e \s \0 \\ \" and \xHH stand
/// for bytes, {TEXT*COUNT} for a repetition.
Words WordsIn(const std::string &line);

/// Runs the words after a '+'. Throws for unknown words.
void Prepare(FakeBoard &board, const Words &words);

/// Runs the words after each '+' and '$' of a line, from left to right, in one process. The
/// transcript shows the result of each operation as "= 0", and of an applet if it is not 0.
void RunLine(FakeBoard &board, const Words &line);
