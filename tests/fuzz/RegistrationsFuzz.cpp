// The registrations by themselves: what engines do not do, such as registering before preparing.
#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/SrFloatNeonRegistration.h"
#include "vision/superresolution/SrFloatRegistration1.h"
#include "vision/superresolution/SrFloatRegistration2.h"

namespace {

template <class Registration>
void run(FuzzInput& input) {
  using Mask = typename Registration::Mask;
  const int width = input.between(11, 40);
  const int height = input.between(11, 40);
  const int room = input.between(0, 5);
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  Registration registration(width, height, room);
  registration.setRegError(input.number());

  std::vector<std::vector<float>> frames(5);
  std::vector<std::vector<float>> moved(5, std::vector<float>(pixels));
  std::vector<std::vector<Mask>> masks(5, std::vector<Mask>(pixels));
  float* frameOf[5];
  float* movedOf[5];
  Mask* maskOf[5];
  for (std::size_t i = 0; i < 5; ++i) {
    frames[i] = input.frame(width, height);
    frameOf[i] = frames[i].data();
    movedOf[i] = moved[i].data();
    maskOf[i] = masks[i].data();
  }
  std::vector<cv::Point_<float>> shifts(5);
  int held = 0;
  for (int calls = 0; calls < 12 && !input.isUsedUp(); ++calls) {
    const int choice = input.upTo(7);
    if (choice <= 4 && held < 5) {
      registration.prepareFrame(frameOf[held++]);
    } else if (choice == 7) {
      registration.clearFrames();
      held = 0;
    } else {
      const int count = input.upTo(room);
      try {
        const int code =
            registration.doRegistration(count, input.between(-1, 5), frameOf, shifts.data(), maskOf, movedOf);
        require(code == 0 || code == -9, "registration returns the codes of its header");
      } catch (const movra::Exception& exception) {
        require(exception.what() == std::string("Too large displacement"), "the text that the header names");
      }
    }
  }
  cv::Point_<float> shift(input.number(), input.number());
  registration.shiftFrame(frameOf[0], shift, movedOf[0]);
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  constexpr void (*runs[])(FuzzInput&) = {run<SrFloatRegistration1>, run<SrFloatRegistration2>,
                                          run<SrFloatNeonRegistration>};
  runs[input.upTo(2)](input);
}
