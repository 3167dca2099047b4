// The words of the case files: what prepares a board and what runs on it.
#pragma once

#include <string>
#include <vector>

#include "tests/fake_board.h"

using Words = std::vector<std::string>;

/// The words of a line, which blanks separate; quotes hold blanks. \n \r \t \e \s \0 \\ \" and \xHH
/// stand for bytes, {TEXT*COUNT} for a repetition.
Words WordsIn(const std::string &line);

/// Does what stands behind a '+'. Throws for words that mean nothing.
void Prepare(FakeBoard &board, const Words &words);

/// Does, from left to right, what stands behind each '+' and '$' of a line, in one run: it is one
/// process. The transcript tells the result of each operation as "= 0", of an applet if it is not
/// 0.
void RunLine(FakeBoard &board, const Words &line);
