// The C interface: sequences of calls on several contexts, valid and invalid.
#include <algorithm>
#include <climits>
#include <exception>
#include <string>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace {

struct Context {
  int handle;
  int width;
  int height;
};

int anySize(FuzzInput& input) {
  static const int odd[] = {0, 1, -1, INT_MIN, INT_MAX};
  const int choice = input.upTo(15);
  return choice < 5 ? odd[choice] : input.between(8, 24);
}

void open(FuzzInput& input, std::vector<Context>& contexts) {
  const int width = anySize(input);
  const int height = anySize(input);
  try {
    const int handle = SuperResolution_init(width, height);
    require(handle >= -1, "init returns a handle or -1");
    if (handle >= 0) {
      require(SuperResolution_isContextValid(handle), "a new handle is valid");
      contexts.push_back({handle, width, height});
    }
  } catch (const std::exception&) {
    require(width < 0 || height < 0 || width == INT_MAX || height == INT_MAX, "init throws for impossible sizes only");
  }
}

void fetch(const Context& context) {
  int columns = -1;
  int rows = -1;
  SuperResolution_queryOutputImageSize(context.handle, &columns, &rows);
  require(columns == 2 * context.width && rows == 2 * context.height, "the image has twice the frame's size");
  std::vector<float> image(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  SuperResolution_getSuperresolutionImage(context.handle, image.data());
}

void setReference(int handle, int index) {
  try {
    SuperResolution_setReferenceFrame(handle, index);
    require(!SuperResolution_isContextValid(handle) || (index >= 0 && index < 5),
            "an impossible reference is rejected");
  } catch (const char* text) {
    require(text == std::string("Invalid reference index specified."), "the text that the header names");
  }
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  std::vector<Context> contexts;
  open(input, contexts);
  for (int calls = 0; calls < 24 && !input.isUsedUp(); ++calls) {
    const int choice = input.upTo(15);
    if (choice == 0 || contexts.empty()) {
      open(input, contexts);
      continue;
    }
    const auto chosen = input.ConsumeIntegralInRange<std::size_t>(0, contexts.size() - 1);
    const Context context = contexts[chosen];
    const int handle = choice == 1 ? input.ConsumeIntegral<int>() : context.handle;
    if (choice <= 9) {
      const bool given = choice != 2 && handle == context.handle && context.width <= 24 && context.height <= 24;
      const std::vector<float> frame = given ? input.frame(context.width, context.height) : std::vector<float>();
      const int code = SuperResolution_addImage(handle, given ? frame.data() : nullptr);
      require(code <= 0 && (code >= -4 || code == -999), "addImage returns the codes of its header");
    } else if (choice == 10) {
      fetch(context);
    } else if (choice == 11) {
      setReference(handle, input.between(-2, 6));
    } else if (choice == 12) {
      SuperResolution_setCameraAndLensType(handle, input.ConsumeRandomLengthString(24).c_str());
    } else if (choice == 13) {
      char text[64];
      const int length = input.between(-1, 64);
      SuperResolution_getErrorMessage(text, length);
    } else if (choice == 14) {
      SuperResolution_queryOutputImageSize(handle, nullptr, nullptr);
      SuperResolution_getSuperresolutionImage(handle, nullptr);
    } else {
      require(SuperResolution_release(context.handle) == 0, "a valid context can be released");
      contexts.erase(contexts.begin() + static_cast<std::ptrdiff_t>(chosen));
    }
  }
  for (const Context& context : contexts) {
    require(SuperResolution_release(context.handle) == 0, "a valid context can be released");
  }
}
