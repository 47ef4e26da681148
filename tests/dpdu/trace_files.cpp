#include "trace_files.h"

#include <cstdio>
#include <fstream>

#include "client_run.h"

std::string TracePath(const std::string& name) { return TRACE_FOLDER "/" + name + ".jsonl"; }

std::string TraceText(const std::string& name) { return ReadWholeFile(TracePath(name)); }

std::string TraceLine(int seq, int ts_us, const std::string& event, const std::string& fields) {
    return "{\"seq\":" + std::to_string(seq) + ",\"ts_us\":" + std::to_string(ts_us) +
           ",\"tick_ms\":" + std::to_string(ts_us / 1000) + ",\"pid\":7,\"tid\":8,\"ev\":\"" +
           event + "\"" + (fields.empty() ? "" : "," + fields) + "}\n";
}

std::string CopLine(int seq, int ts_us, const std::string& event, int cop,
                    const std::string& fields) {
    return TraceLine(seq, ts_us, event,
                     "\"hMod\":0,\"hCLL\":1,\"hCoP\":" + std::to_string(cop) + fields);
}

TemporaryTrace::TemporaryTrace(const std::string& text) : path_(TemporaryPath("trace.jsonl")) {
    std::ofstream(path_, std::ios::binary) << text;
}

TemporaryTrace::~TemporaryTrace() { std::remove(path_.c_str()); }
