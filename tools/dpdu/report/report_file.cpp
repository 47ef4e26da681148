#include "report/report_file.h"

#include <mbedtls/base64.h>
#include <zlib.h>

#include <new>
#include <nlohmann/json.hpp>
#include <string>

#include "report/page.h"

namespace dpdu::report {
namespace {

// With its header, as the page's DecompressionStream("deflate") takes it.
std::string Deflated(const std::string& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string deflated(size, '\0');
    const int result = compress2(reinterpret_cast<Bytef*>(deflated.data()), &size,
                                 reinterpret_cast<const Bytef*>(bytes.data()),
                                 static_cast<uLong>(bytes.size()), Z_DEFAULT_COMPRESSION);
    if (result != Z_OK) throw std::bad_alloc();  // there is no other reason
    deflated.resize(size);
    return deflated;
}

std::string Base64(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // the encoder ends it with a zero
    std::size_t size = 0;
    mbedtls_base64_encode(reinterpret_cast<unsigned char*>(text.data()), text.size(), &size,
                          reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    text.resize(size);
    return text;
}

std::string Script(const char* attributes, const std::string& text) {
    return std::string("<script ") + attributes + ">" + text + "</script>\n";
}

}  // namespace

ReportFile::ReportFile(Output* output)
    : output_(output), data_([this](const Chunk& chunk) { Write(chunk); }) {
    output_->Text(std::string(kPageHead));
    output_->Text(Script("type=\"application/json\" id=\"layout\"", ScriptText(data_.Layout())));
}

void ReportFile::Write(const Chunk& chunk) {
    const Json head = {{"rows", chunk.rows}};
    output_->Text(Script("type=\"text/plain\" class=\"chunk\"",
                         head.dump() + "\n" + Base64(Deflated(chunk.bytes))));
}

void ReportFile::Finish(bool has_calendar_time) {
    data_.Finish();
    output_->Text(Script("type=\"application/json\" id=\"facts\"",
                         ScriptText(data_.Facts(has_calendar_time))));
    output_->Text(std::string(kPageTail));
}

}  // namespace dpdu::report
