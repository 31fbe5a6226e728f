#pragma once

namespace nulo {

/// First in main(): opens /dev/null in place of closed standard streams, which a file or socket of
/// the program's own would take otherwise, and has writing to a pipe that nobody reads fail instead
/// of ending the process.
void secureStandardStreams();

/// From now on standard output goes nowhere.
void silenceStandardOutput();

}  // namespace nulo
