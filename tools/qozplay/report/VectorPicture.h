// One frame with its motion field laid over it. A client does not see the vectors; a session of its
// own on two frames dumps them as pictures, so that the dumping slows down nothing that is
// measured.
#pragma once

#include "qozplay/run/Simulator.h"
#include "qozplay/stream/Session.h"

#include <filesystem>

namespace qozplay {

class VectorPicture {
  public:
    // Of `frame` of the clip and the one after it.
    VectorPicture(const Options& options, std::unique_ptr<FrameSource> clip, uint64_t frame);

    // Once, while the simulator is on; the object must outlive it. Throws SessionFailed.
    void save(Simulator& simulator);

  private:
    // Temporary, gone with the object.
    class Folder {
      public:
        Folder();
        ~Folder();
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;

        std::filesystem::path path;
    };

    void skipTo(uint64_t frame);
    void draw() const;

    const Options mOptions;
    const std::unique_ptr<FrameSource> mClip;
    const uint64_t mFrame;
    const Folder mFolder;
    WarmUp mWarmUp{1};
    std::unique_ptr<Session> mSession;
};

}  // namespace qozplay
