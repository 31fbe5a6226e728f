#pragma once

#include <string>
#include <string_view>

#include "base/Result.h"
#include "desktop/Notifications.h"
#include "transcription/TranscriptionError.h"

/// What the user is told when a dictation does not end as it should.
namespace nulo {

Notice recordingNotStarted(const Error& reason);
Notice recordingInterrupted(const Error& reason);
Notice recordingNotSaved(const Error& reason);
Notice recordingTooLong();

Notice configUnreadable();
Notice serviceFileRefused(const Error& reason);

Notice requestFailed(const TranscriptionFailure& failure);
/// The notice of a failed clean-up; the transcript is pasted all the same.
Notice cleanupFailed(const TranscriptionFailure& failure);
Notice nothingRecognised();
/// The notice of a failure whose take is kept.
Notice andTakeKept(Notice failure);
/// What came of a kept take that was sent again; its text is on the clipboard.
Notice textRecovered();
Notice textRecoveredWithoutCleanup(const TranscriptionFailure& failure);
Notice textNotPasted(const Error& reason);

/// Notices of texts that no program asked for after the keys, and the button that pastes again.
Notice textNotRead();
Notice textReplaced();
inline constexpr std::string_view pasteAgainLabel = "Coller a nouveau";

}  // namespace nulo
