// What a replay posted, beside what was recorded. Stateless.
#pragma once

#include <vector>

#include "replay/recording/recordedStep.h"
#include "replay/world/posts.h"

namespace replay {

/// One event, posted or dropped, of a replay, of the recording or of both.
struct Outcome {
  enum class Kind {
    kEqual,     ///< name, arguments and fate are as recorded
    kChanged,   ///< arguments or fate are not
    kNew,       ///< it was not recorded
    kMissing,   ///< it was recorded alone
    kNotKnown,  ///< the recording does not tell
  };
  Kind kind;
  Post replayed;          ///< of all but kMissing
  RecordedPost recorded;  ///< of kEqual, kChanged and kMissing
};

/// Compare the events of one step, in order. `knowsHost`: the host's UUID in their records counts, too.
std::vector<Outcome> Compare(std::vector<Post> replayed, std::vector<RecordedPost> recorded, bool knowsHost);

}  // namespace replay
