// Measures the plug-in: each message type received and sent, thousands of stations, and an idle turn of the main loop.
// Shows the baseline of the same run next to each: the same heap blocks allocated and freed, the same bytes copied.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "host/ieee1905/cmdu.h"
#include "protocol/message_row.h"
#include "quiet_system.h"
#include "support/sample_messages.h"
#include "transport/outstanding_queries.h"

namespace {

using kvbench::Bytes;

const std::string kBaseline = "/baseline";

// Measures the work itself, or only its blocks and copies.
void compare(const std::string &name, size_t bytes, const std::function<void()> &work, double stations = 0) {
    work();  // what is set up once is not part of the figure
    const std::vector<size_t> sizes = kvbench::blocksOf(work);
    const auto finish = [=](benchmark::State &state) {
        state.counters["blocks"] = static_cast<double>(sizes.size());
        if (stations > 0) {
            state.counters["per station"] = benchmark::Counter(
                stations, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        for (auto _ : state) {
            work();
        }
        finish(state);
    });
    const auto baseline = [=](benchmark::State &state) {
        std::vector<void *> blocks(sizes.size());
        const Bytes source(bytes);
        Bytes target(bytes);
        for (auto _ : state) {
            for (size_t i = 0; i < sizes.size(); ++i) {
                blocks[i] = std::malloc(sizes[i]);
                benchmark::DoNotOptimize(blocks[i]);  // otherwise malloc and memset become calloc
                std::memset(blocks[i], 0, sizes[i]);
            }
            std::memcpy(target.data(), source.data(), bytes);
            benchmark::DoNotOptimize(target.data());
            for (void *block : blocks) {
                std::free(block);
            }
        }
        finish(state);
    };
    benchmark::RegisterBenchmark((name + kBaseline).c_str(), baseline);
}

void receive(const Bytes &value) {
    KvRecvVendTlv tlv = {};
    std::memcpy(tlv.srcMac, kvbench::kAgent, sizeof tlv.srcMac);
    tlv.value = value.data();
    kvMAP1905_VendSpecTlv_handle(&tlv, static_cast<uint32_t>(value.size()), 7);
}

// A message as the agent sends it.
Bytes received(uint16_t type, const Bytes &payload) {
    const auto length = static_cast<unsigned>(payload.size());
    const unsigned header[] = {0, 1, type / 256u, type % 256u, length / 256u, length % 256u};
    Bytes value = kvbench::fromHex("024EA7");
    const auto append = [&value](const auto &bytes) {
        for (const auto byte : bytes) {
            value.push_back(static_cast<uint8_t>(byte));
        }
    };
    append(kvbench::kAgent);
    append(header);
    append(payload);
    return value;
}

// A decoded record that lives as long as the benchmark that sends it.
struct Record {
    KvVendMsg msg = {};
    Record() = default;
    Record(const Record &) = delete;
    Record &operator=(const Record &) = delete;
    ~Record() { std::free(msg.payload); }
};

void forgetTable() {
    kv::FreeLinked()(kvbench::agentRecord().wifiNbrHead);
    kvbench::agentRecord().wifiNbrHead = nullptr;
    kvbench::agentRecord().wifiNbrNum = 0;
}

// The device as the single messages find it.
void withoutStations() {
    if (WIFINbrNum != 0) {
        kv::kvRemoveWIFINeighborList();
        forgetTable();
    }
}

void benchMessage(const kvtest::SampleMessage &sample) {
    const kv::MessageRow &row = *kv::findMessageRow(sample.type);
    const Bytes payload = kvbench::fromHex(sample.payload);
    const Bytes value = received(sample.type, payload);
    compare(std::string("receive/") + kvVendorMessageName(sample.type), value.size(), [value] {
        withoutStations();
        receive(value);
    });

    const auto record = std::make_shared<Record>();
    std::memcpy(record->msg.alMac, kvbench::kAgent, sizeof record->msg.alMac);
    record->msg.msgType = sample.type;
    record->msg.payloadLen = static_cast<uint16_t>(payload.size());
    kv::ByteReader reader(payload.data(), payload.size());
    row.decode(reader, record->msg);
    if (record->msg.payload == nullptr) {
        return;  // the decoder has applied it, there is no record to send
    }
    compare(std::string("send/") + kvVendorMessageName(sample.type), value.size(), [record] {
        uint16_t msgId = 1;
        kvMAP1905_VenderSpecMsg_send(kvbench::kAgent, &msgId, &record->msg);
    });
}

void benchWsc() {
    static const KvBssInfo kBss = {0x20, 1, 2, 3, 4, 5, 36, 1, 2};
    static uint8_t attribute[64];
    const int length = kvMAP1905_ApCfg_fill(attribute, 0, &kBss);
    compare("wsc extension/parsed", static_cast<size_t>(length), [length] {
        KvBssInfo bss = {};
        benchmark::DoNotOptimize(
            kvMAP1905_ApCfg_parse_check_len(attribute + 4, static_cast<uint32_t>(length - 4), &bss));
    });
    compare("wsc extension/written", static_cast<size_t>(length),
            [] { benchmark::DoNotOptimize(kvMAP1905_ApCfg_fill(attribute, 0, &kBss)); });
}

void benchQueryTable() {
    compare("query table/registered and reported", 0, [] {
        kv::registerKvVendQueryMsg(kvbench::kAgent, 0x77, 0, 0);
        kv::reportKvVendRespMsgReceived(kvbench::kAgent, 0x77, VEND_MSG_TYPE_CONF_RESP);
    });
    compare("query table/checked, empty", 0, [] {
        const std::time_t now = std::time(nullptr);
        kv::checkKvVendRespMsgReceived(&now);
    });
    compare("main loop/nothing due", 0, [] {
        data_model_time_stamp = static_cast<uint32_t>(std::time(nullptr));
        kvMAP1905_MainLoop();
    });
}

// ---- Stations

void writeStationFile(size_t count) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(kv::kStationFile5G, "w"), std::fclose);
    for (size_t i = 0; i < count; ++i) {
        std::fprintf(file.get(), "02:00:5e:%02zx:%02zx:%02zx 866000 -%zu 30 1 wl1 %zu %zu 866000 650000 0x10\n",
                     i >> 16, i >> 8 & 0xFF, i & 0xFF, 40 + i % 40, i * 1000, i * 700);
    }
}

void benchStations(size_t count) {
    const std::string suffix = "/" + std::to_string(count);
    // Finds the block sizes of each benchmark when it runs. Creates list and table on demand.
    const auto prepare = [count] {
        if (WIFINbrNum != count) {
            writeStationFile(count);
            kv::runNetCtrl();
            forgetTable();
        }
    };
    prepare();
    const auto stations = static_cast<double>(count);
    const size_t bytes = count * sizeof(WIFINeighborEntry);

    std::vector<Bytes> reports = kvbench::sentBy([] { kv::kvSendWIFIClientInfo(); });
    for (Bytes &value : reports) {  // as the agent would send them
        std::memcpy(value.data() + 3, kvbench::kAgent, KV_MAC_LEN);
        std::memcpy(value.data() + 15, kvbench::kAgent, KV_MAC_LEN);
    }
    compare(
        "stations/files read" + suffix, bytes,
        [=] {
            prepare();
            kv::runNetCtrl();
        },
        stations);
    compare(
        "stations/report built and sent" + suffix, bytes,
        [=] {
            prepare();
            kv::kvSendWIFIClientInfo();
        },
        stations);
    compare(
        "stations/report parsed and merged" + suffix, bytes,
        [=] {
            prepare();
            for (const Bytes &value : reports) {
                receive(value);
            }
        },
        stations);
    compare(
        "stations/one list merged" + suffix, bytes,
        [=] {
            prepare();
            const WIFINeighborList list = {WIFINbrNum, WIFINeighborHead};
            kv::kvUpdateWiFiNbr(&kvbench::agentRecord(), &list);
        },
        stations);
    compare(
        "stations/queried and answered" + suffix, bytes,
        [=] {
            prepare();
            static const Bytes query = received(VEND_MSG_TYPE_WIFI_STATE_REQ, Bytes(6));
            receive(query);
        },
        stations);
}

// ---- Output: the usual table, then each work against its baseline

class Ratios : public benchmark::ConsoleReporter {
  public:
    Ratios() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median") {
                times_[run.run_name.function_name] = run.GetAdjustedCPUTime();
                blocks_[run.run_name.function_name] =
                    run.counters.count("blocks") ? run.counters.at("blocks").value : 0;
            }
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-52s %12s %12s %8s %8s\n", "against its baseline", "ns", "baseline ns", "ratio", "blocks");
        for (const auto &[name, time] : times_) {
            const auto baseline = times_.find(name + kBaseline);
            if (baseline != times_.end()) {
                std::printf("%-52s %12.1f %12.1f %8.2f %8.0f\n", name.c_str(), time, baseline->second,
                            baseline->second > 0 ? time / baseline->second : 0, blocks_[name]);
            }
        }
        for (const char *work :
             {"files read", "report built and sent", "report parsed and merged", "one list merged"}) {
            const std::string name = std::string("stations/") + work + "/";
            if (times_.count(name + "256") && times_.count(name + "8191")) {
                std::printf("%-52s %12.2f times that at 256\n", ("per station at 8191, " + std::string(work)).c_str(),
                            times_[name + "8191"] * 256 / 8191 / times_[name + "256"]);
            }
        }
    }

  private:
    std::map<std::string, double> times_;
    std::map<std::string, double> blocks_;
};

// The host's part of a short vendor message by relayed multicast: 81 bytes after the Ethernet header.
void benchEncodeMessage() {
    const kv1905d::Message message{0x0004, 1, true, {{0x0B, Bytes(58)}, {0x01, Bytes(6)}}};
    benchmark::RegisterBenchmark("host/message encoded", [=](benchmark::State &state) {
        for (auto _ : state) {
            benchmark::DoNotOptimize(kv1905d::encodeMessage(message));
        }
    });
}

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    kvbench::startHost();
    for (const kvtest::SampleMessage &sample : kvtest::kSampleMessages) {
        benchMessage(sample);
    }
    compare("receive/Intel RSSI_MEASUREMENT_REQ", 28, [] {
        static const Bytes value = kvbench::fromHex(kvtest::kSampleIntelRequest);
        withoutStations();
        receive(value);
    });
    benchWsc();
    benchQueryTable();
    benchEncodeMessage();
    for (const size_t count : {1u, 32u, 256u, 2048u, 8191u}) {
        benchStations(count);
    }
    Ratios reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    forgetTable();
    return 0;
}
