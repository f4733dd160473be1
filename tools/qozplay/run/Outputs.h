// SPDX-License-Identifier: Apache-2.0
// Everything that a run writes: opened before the work, so that what cannot be written is found out
// then, and put in its place at the end. Owned by the player, on whose thread it is made and saved.
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

class Outputs {
  public:
    // Throws BadInput: one of them cannot be written, or is the input, or another one of them.
    Outputs(const Options& options, FrameSource& source, const StopRequest& stop);

    std::vector<FrameSink*> sinks() const;

    // The frame whose vectors are shown; none: nobody asked.
    std::optional<uint64_t> vectorsOf() const;

    // Each on its own; what cannot be saved is a sentence more in `stats->failures`. The figures,
    // which tell of all of it, come last. `folder` has what the component dumped.
    void save(RunStats* stats, const std::filesystem::path& folder);

  private:
    template <typename Work>
    void attempt(RunStats* stats, Work work);
    std::string clipText() const;

    const Options& mOptions;
    ClipInfo mInfo;                   // of the frames that come out
    std::optional<uint64_t> mMiddle;  // source frame that pictures are made of; none: not known
    std::unique_ptr<MediaWriter> mClip;
    std::unique_ptr<Sheet> mSheet;
    std::unique_ptr<OutputFile> mSheetFile, mVectors, mTrace, mStats;
};

}  // namespace qozplay
