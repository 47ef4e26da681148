// Findings about one subject.

#ifndef TOOLS_DPDU_CHECK_GROUP_H
#define TOOLS_DPDU_CHECK_GROUP_H

#include <string>
#include <utility>

#include "doctor/finding.h"

namespace dpdu::check {

class Group {
public:
    Group(std::string subject, Findings* findings)
        : subject_(std::move(subject)), findings_(findings) {}
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    void Wrong(const std::string& text, const std::string& advice) {
        is_wrong_ = true;
        Add(Verdict::kWrong, text, advice);
    }
    void Note(const std::string& text, const std::string& advice = "") {
        has_note_ = true;
        Add(Verdict::kNote, text, advice);
    }
    // What was checked, unless something was wrong.
    void Held(const std::string& text) {
        if (!is_wrong_) Add(Verdict::kFine, text, "");
    }

    bool HasNote() const { return has_note_; }

private:
    void Add(Verdict verdict, const std::string& text, const std::string& advice) {
        findings_->push_back({verdict, subject_, text, advice});
    }

    std::string subject_;
    Findings* findings_;
    bool is_wrong_ = false;
    bool has_note_ = false;
};

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_GROUP_H
