#include "base/Print.h"

#include <cstdio>
#include <string>

namespace nulo {

void printLine(std::string_view line) {
    std::string text(line);
    text += '\n';
    // One fwrite holds the stream's lock throughout, so lines of two threads never mix.
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace nulo
