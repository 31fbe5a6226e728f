#include "service/Spool.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "rig/process/TemporaryFolder.h"

namespace nulo::service {
namespace {

TEST(Spool, movesLargeUploadsToANamelessFile) {
    const TemporaryFolder folder;
    setenv("TMPDIR", folder.path().c_str(), 1);
    Spool spool("head");
    std::string expected = "head";
    for (int i = 0; i < 40; ++i) {
        const std::string piece(65535, static_cast<char>('a' + i % 26));
        ASSERT_FALSE(spool.append(piece));
        expected += piece;
        EXPECT_EQ(spool.isOnDisk(), expected.size() > Spool::mostInMemory);
    }
    const Spool moved = std::move(spool);
    std::string bytes;
    char piece[5000];
    for (std::ptrdiff_t count = 0; (count = moved.read(bytes.size(), piece, sizeof piece)) > 0;)
        bytes.append(piece, static_cast<std::size_t>(count));
    EXPECT_TRUE(bytes == expected);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));

    setenv("TMPDIR", (folder / "missing").c_str(), 1);
    EXPECT_EQ(Spool("x").append(std::string(Spool::mostInMemory, 'x')),
              std::errc::no_such_file_or_directory);
    unsetenv("TMPDIR");
}

}  // namespace
}  // namespace nulo::service
