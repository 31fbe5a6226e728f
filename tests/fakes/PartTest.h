#pragma once

#include <gmock/gmock.h>

#include <filesystem>

#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

using namespace testing;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// What the program's parts are made with: a folder, virtual time, and somewhere to print to.
class PartTest : public Test {
  protected:
    TemporaryFolder m_folder;
    FakeClock m_clock;
    FakeMainQueue m_queue{&m_clock};
    PrintedLines m_printed;
};

}  // namespace nulo
