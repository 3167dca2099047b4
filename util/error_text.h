// What an error number means, in words.
#pragma once

/// The text of the error `error`, until the next call. Logs are searched for these words, so they
/// do not depend on the C library that the program is linked with.
const char *ErrorText(int error);
