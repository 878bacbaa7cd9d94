#include <ostream>

#include "sim/explain/story.h"

namespace explain {

int RunExplain(const std::vector<std::string>& files, bool json, std::ostream& out, std::ostream& err) {
  StorySink sink;
  for (const std::string& file : files) {
    std::string error;
    if (!ReadInput(file, sink, &error)) {
      err << "remedium-sim explain: " << error << "\n";
      return 2;
    }
  }
  const Story story = sink.Finish();
  if (json) {
    out << StoryJson(story).dump(2) << "\n";
  } else {
    out << FormatStory(story);
  }
  return 0;
}

}  // namespace explain
