// Values of a stream that someone else holds, as they pass by.
#ifndef TOOLS_VEXO_CAPTURE_SOURCE_H
#define TOOLS_VEXO_CAPTURE_SOURCE_H

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "tools/vexo/capture_reader.h"

namespace tool {

// A field of a package as sessions describe it, behind their package's header.
VexoSessionVariable variable_of(const capture::Field& field);

// The first controller that streams is the one that is shown, unless one is named.
class CaptureSource : public Source {
public:
    // Waits for the first package, which tells the fields.
    CaptureSource(Context& context, const std::vector<std::string>& names);
    ~CaptureSource() override;

    const std::vector<VexoSessionVariable>& fields() const override { return fields_; }
    std::optional<Row> next(TimePoint end) override;

private:
    using Record = std::vector<uint64_t>;  // whose alignment is that of a package's header

    void take(const capture::Row& row);
    void learn(const std::shared_ptr<const capture::Layout>& layout);
    bool fill(TimePoint end);
    Failure silence() const;

    Context& context_;
    const std::vector<std::string> names_;
    CaptureReader reader_;
    std::string controller_;
    std::shared_ptr<const capture::Layout> layout_;  // that `places_` are of
    std::vector<const capture::Field*> places_;
    std::vector<VexoSessionVariable> fields_;
    std::deque<Record> waiting_;
    Record shown_;
    std::chrono::microseconds patience_;
    TimePoint heard_ = std::chrono::steady_clock::now();
};

}  // namespace tool

#endif
