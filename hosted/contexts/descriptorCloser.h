// Closes descriptors of unknown origin. The poll loop's thread only.
#pragma once

namespace hosted {

/// Close `fd` in a thread of its own: whoever made it may have it wait as long as he likes, and a connection that is
/// closed closes what its unread packets carry. Where that thread can't be had, or is held up behind thousands of them,
/// the descriptor stays open: better than a wait. Never blocks.
void CloseElsewhere(int fd);

}  // namespace hosted
