// A sign of life during work that takes longer than a second.
#pragma once

#include <string>

/// While it exists, and if standard error is a terminal, prints the kind of work and a dot for each
/// second there. Work of less than a second prints nothing. One at a time.
class Progress
{
public:
    explicit Progress(const std::string &work);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// Ends the progress line, if there is one, because a message needs its own line.
    static void EndLine();
};
