// The framework's text-form primitives (platform/kel/Text.h): quoted strings, integers of every
// width and signedness, doubles and booleans, read by TextCursor.
//
// Selector: 's' string, 'u' uint64_t, 'i' int64_t, 'w' uint32_t, 'h' int16_t, 'b' uint8_t,
// 'd' double, 't' bool, 'q' the raw bytes as a string value (value -> text -> value).
#include "fuzz/FuzzCheck.h"

using ProtoribFuzz::OnRefusal;
using ProtoribFuzz::strepRoundTrip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  switch (ProtoribFuzz::pick(in->selector, "suiwhbdtq")) {
    case 0: strepRoundTrip<std::string>(t, OnRefusal::cursorKept); break;
    case 1: strepRoundTrip<uint64_t>(t, OnRefusal::cursorKept); break;
    case 2: strepRoundTrip<int64_t>(t, OnRefusal::cursorKept); break;
    case 3: strepRoundTrip<uint32_t>(t, OnRefusal::cursorKept); break;
    case 4: strepRoundTrip<int16_t>(t, OnRefusal::cursorKept); break;
    case 5: strepRoundTrip<uint8_t>(t, OnRefusal::cursorKept); break;
    case 6: strepRoundTrip<double>(t, OnRefusal::cursorKept); break;
    case 7: strepRoundTrip<bool>(t, OnRefusal::cursorKept); break;
    default: {
      // Any bytes at all are a string value, and quoting must keep every one of them.
      std::string quoted = Kel::quote(t);
      std::string back;
      try {
        back = Kel::strepToValue<std::string>(quoted);
      } catch (const Kel::Exception& e) {
        ProtoribFuzz::fail("a quoted string is refused", t, quoted + " -> " + e.what());
      }
      ProtoribFuzz::check(back == t, "a quoted string reads back as another", t, quoted);
      strepRoundTrip<std::string>(quoted, OnRefusal::cursorKept);
    }
  }
  return 0;
}
