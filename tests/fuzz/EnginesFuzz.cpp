// The four engines: every operation in any order, on frames of any content.
#include <limits>
#include <memory>
#include <new>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace {

/// Errors are thrown as the headers tell; anything else ends the run.
template <class Call>
bool succeeds(Call call) {
  try {
    return accepts(call);
  } catch (const char*) {
    return false;
  }
}

void read(SuperResolution& engine) {
  cv::Mat_<float> quality;
  engine.computeQuality_();
  engine.getQuality(quality);
  engine.simpleCombine();
  std::vector<PointF> shifts;
  engine.getCompleteShifts(shifts);
  std::vector<short> image(static_cast<std::size_t>(engine.getOutputSize()) + 1);
  engine.saveFrame(image.data());
}

template <class Engine>
void read(Engine& engine) {
  std::vector<cv::Point_<float>> shifts;
  engine.getCompleteShifts(shifts);
  std::vector<typename Engine::MaskImage> masks;
  engine.getMasks(masks);
  require(static_cast<int>(masks.size()) == engine.getWindowSize(), "one mask per slot");
}

template <class Engine>
void setSomething(Engine& engine, FuzzInput& input) {
  const int what = input.upTo(5);
  const float value = input.number();
  succeeds([&] {
    what == 0   ? engine.setReferenceIndex(input.between(-1, 6))
    : what == 1 ? engine.setRegError(value)
    : what == 2 ? engine.setPsfSigma(value)
    : what == 3 ? engine.setWeightTV(value)
    : what == 4 ? engine.setRelativeResidue(value)
                : engine.setMaxCGIters(input.between(-1, 12));
  });
}

template <class Engine>
void run(FuzzInput& input, float factor) {
  const int width = input.between(0, 24);
  const int height = input.between(0, 24);
  const int window = input.between(-1, 5);
  std::unique_ptr<Engine> engine;
  const auto make = [&] {
    try {
      engine = std::make_unique<Engine>(width, height, window, factor);
    } catch (const std::bad_array_new_length&) {
      require(window < 0 || !(factor >= 0), "a possible engine can be made");
    }
  };
  if (!succeeds(make) || engine == nullptr) {
    return;
  }
  engine->setMaxCGIters(2);  // enough to enter every branch
  std::vector<float> out(static_cast<std::size_t>(engine->getOutputSize()) + 1, 0.0f);
  out.back() = 77.0f;
  for (int calls = 0; calls < 20 && !input.isUsedUp(); ++calls) {
    const int choice = input.upTo(9);
    if (choice <= 4) {
      const std::vector<float> frame = input.frame(width, height);
      succeeds([&] { engine->addFrame(frame.data()); });
    } else if (choice <= 6) {
      succeeds([&] {
        const float outcome = engine->computeSR(out.data());
        require(outcome <= 2.0f, "no outcome above 2");
      });
    } else if (choice == 7) {
      setSomething(*engine, input);
    } else if (choice == 8) {
      read(*engine);
    } else {
      engine->clearFrames();
    }
  }
  require(out.back() == 77.0f, "the result ends where the header says");
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  const int which = input.upTo(3);
  const int step = input.upTo(7);
  const float factor = step < 4 ? 2.0f : step == 4 ? 1.0f : step == 5 ? 3.0f : step == 6 ? 1.5f : input.number();
  if (!(factor <= 4.0f)) {
    return;  // memory in proportion
  }
  constexpr void (*runs[])(FuzzInput&, float) = {run<SrFloat<SrFloatRegistration1>>, run<SrFloat<SrFloatRegistration2>>,
                                                 run<SrFloatNeon<SrFloatNeonRegistration>>, run<SuperResolution>};
  runs[which](input, factor);
}
