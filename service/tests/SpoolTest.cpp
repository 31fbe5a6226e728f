#include "service/Spool.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "rig/process/TemporaryFolder.h"

namespace nulo::service {
namespace {

std::string contentOf(const Spool& spool) {
    std::string bytes;
    char piece[5000];
    for (std::ptrdiff_t count = 0; (count = spool.read(bytes.size(), piece, sizeof piece)) > 0;)
        bytes.append(piece, static_cast<std::size_t>(count));
    return bytes;
}

TEST(Spool, movesLargeUploadsToANamelessFile) {
    const TemporaryFolder folder;
    const std::string before = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp";
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
    EXPECT_TRUE(contentOf(moved) == expected);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));

    setenv("TMPDIR", (folder / "missing").c_str(), 1);
    Spool homeless("x");
    EXPECT_EQ(homeless.append(std::string(Spool::mostInMemory, 'x')),
              std::errc::no_such_file_or_directory);
    setenv("TMPDIR", before.c_str(), 1);
}

}  // namespace
}  // namespace nulo::service
