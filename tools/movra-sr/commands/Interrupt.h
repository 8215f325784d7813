#pragma once

namespace movra::tool {

/// From here on an interrupt or a request to terminate is noted instead of ending the program: what is being written is
/// finished first.
void noteInterrupts();

bool isInterrupted();

}  // namespace movra::tool
