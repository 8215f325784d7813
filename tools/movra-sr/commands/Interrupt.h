#pragma once

namespace movra::tool {

/// From here on an interrupt, a request to terminate or a closed terminal is noted instead of ending the program: what is
/// being written is finished first. The second one ends the program.
void noteInterrupts();

bool isInterrupted();

}  // namespace movra::tool
