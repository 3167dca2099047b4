// What an error number means, in words.
#pragma once

/// The text of the error `error`, until the next call. Logs are searched for these words, so for
/// the errors of files, flash, mounts and sockets they do not depend on the C library.
const char *ErrorText(int error);
