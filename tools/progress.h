// A sign of life during work that takes longer than a second.
#pragma once

#include <string>

/// While it lives, and only where standard error is a terminal, it prints there what is being done
/// and a dot for each second. Shorter work prints nothing. One at a time.
class Progress
{
public:
    explicit Progress(const std::string &work);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// Ends the line that is shown, if any: a message needs one of its own.
    static void EndLine();
};
