// nulo-random-model FILE: writes a model of whisper.cpp's, of the shape of the one named "tiny".

#include <cstdio>
#include <exception>

#include "rig/speech/RandomModel.h"

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::fputs("usage: nulo-random-model FILE\n", stderr);
        return 2;
    }
    try {
        nulo::writeRandomModel(arguments[1], nulo::tinyShape);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nulo-random-model: %s\n", error.what());
        return 1;
    }
    return 0;
}
