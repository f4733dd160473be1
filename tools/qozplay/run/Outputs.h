// SPDX-License-Identifier: Apache-2.0
// The files that a run of the player writes.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qozplay/cli/Options.h"
#include "qozplay/media/MediaWriter.h"
#include "qozplay/report/Sheet.h"

namespace qozplay {

// Opens all output files before the sessions start, so that an unwritable one is reported before
// the work, and moves them to their final names when the run has ended. Owned by the player, whose
// thread creates it and calls save(). The first session's thread passes frames to the sinks.
class Outputs {
  public:
    // Throws BadInput if a file cannot be written, or if it is also the input or another output.
    // Keeps references to the options, and to the audio of the source.
    Outputs(const Options& options, FrameSource& source, const StopRequest& stop);

    std::vector<FrameSink*> sinks() const;

    // The source frame whose motion vectors --vectors shows; nullopt without --vectors.
    std::optional<uint64_t> vectorsOf() const;

    // Completes each output independently of the others; a failure adds a sentence to
    // `stats->failures`. The figures are saved last, because they include these failures. `folder`
    // contains the component's frame dumps.
    void save(RunStats* stats, const std::filesystem::path& folder);

  private:
    template <typename Work>
    void attempt(RunStats* stats, Work work);
    std::string clipText() const;

    const Options& mOptions;
    ClipInfo mInfo;  // of the output clip
    // The source frame that the sheet and the vectors show; nullopt if it was not given and the
    // length of the clip is unknown.
    std::optional<uint64_t> mMiddle;
    std::unique_ptr<MediaWriter> mClip;
    std::unique_ptr<Sheet> mSheet;
    std::unique_ptr<OutputFile> mSheetFile, mVectors, mTrace, mStats;
};

}  // namespace qozplay
