#include "transcription/TranscriptionError.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Catches a changed text: people look these up, and scripts match them.
TEST(TranscriptionError, describesEveryCase) {
    EXPECT_EQ(TranscriptionError::apiError(500, "boom").errorDescription(), "API error 500: boom");
    EXPECT_EQ(TranscriptionError::apiError(-1, "").errorDescription(), "API error -1: ");
    EXPECT_EQ(TranscriptionError::noData().errorDescription(), "No data received");
    EXPECT_EQ(TranscriptionError::noApiKey().errorDescription(), "No API key configured");
    EXPECT_EQ(describe(TranscriptionError::invalidResponse()), "Invalid server response");
    EXPECT_EQ(describe(Error{"The host is unknown"}), "The host is unknown");
}

}  // namespace
}  // namespace nulo
