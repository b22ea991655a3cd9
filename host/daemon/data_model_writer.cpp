#include "daemon/data_model_writer.h"

#include <kv1905/kvMAP1905.h>

#include <algorithm>
#include <exception>

namespace kv1905d {

int DataModelWriter::request(Reason reason) {
    if (requested_ != Reason::Change) requested_ = reason;
    run();
    return lastResult_;
}

TimePoint DataModelWriter::run() {
    if (!requested_) return TimePoint::max();
    const TimePoint begin = clock_();
    const TimePoint due = requested_ == Reason::Change ? earliestChange_ : earliestReport_;
    if (begin < due) return due;
    write(begin);
    return TimePoint::max();
}

void DataModelWriter::write(TimePoint begin) {
    requested_.reset();
    lastResult_ = KV_RET_OK;
    try {
        write_();
    } catch (const std::exception &error) {
        lastResult_ = KV_RET_ERR;
        failures_.log(KV_LOG_ERROR, begin, "JSON file not written: %s", error.what());
    }
    const Duration pause = (clock_() - begin) * (1 + kPause);
    earliestChange_ = begin + std::max(kChangeSpacing, pause);
    earliestReport_ = begin + std::max(kReportSpacing, pause);
}

}  // namespace kv1905d
