#pragma once

namespace nulo {

/// The first call in main(). Opens /dev/null in place of closed standard streams, whose numbers a
/// file or socket of the program's own would get otherwise, and makes writing to a pipe without a
/// reader fail instead of ending the process.
void secureStandardStreams();

/// Sends standard output nowhere from now on.
void silenceStandardOutput();

}  // namespace nulo
