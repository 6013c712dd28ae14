#include "platform/HeadlessOperator.h"

#include <cstdio>

namespace vq {

void HeadlessOperator::Message(const std::string& text, MessageIcon, const std::string& title) {
    std::fprintf(stderr, "%s%s%s\n", title.c_str(), title.empty() ? "" : ": ", text.c_str());
    std::fflush(stderr);
    if (sink_) sink_(title.empty() ? text : title + ": " + text);
}

bool HeadlessOperator::AskYesNo(const std::string& text, const std::string& title, int) {
    std::fprintf(stderr, "%s%s%s\n(answered Yes)\n", title.c_str(), title.empty() ? "" : ": ", text.c_str());
    std::fflush(stderr);
    return true;
}

void HeadlessOperator::Beep() {
    std::fputc('\a', stderr);
    std::fflush(stderr);
}

}  // namespace vq
