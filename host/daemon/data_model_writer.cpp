#include "daemon/data_model_writer.h"

#include <kv1905/kvMAP1905.h>

#include <algorithm>
#include <exception>

namespace kv1905d {

int DataModelWriter::request() {
    isRequested_ = true;
    run();
    return lastResult_;
}

TimePoint DataModelWriter::run() {
    const TimePoint begin = clock_();
    if (!isRequested_) return TimePoint::max();
    if (begin < earliest_) return earliest_;
    isRequested_ = false;
    lastResult_ = KV_RET_OK;
    try {
        write_();
    } catch (const std::exception &error) {
        lastResult_ = KV_RET_ERR;
        failures_.log(KV_LOG_ERROR, begin, "JSON file not written: %s", error.what());
    }
    earliest_ = begin + std::max(kSpacing, (clock_() - begin) * (1 + kPause));
    return TimePoint::max();
}

}  // namespace kv1905d
