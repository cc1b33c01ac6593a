// SPDX-License-Identifier: Apache-2.0
//
// What a run was made of: its input, options, versions, and the machine.
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/utsname.h>

extern "C" {
#include <libavutil/avutil.h>
}

#include "page_parts.h"
#include "processors.h"
#include "report_pictures.h"

namespace tarn::host {

namespace {

using list = kainjow::mustache::list;

/// The processor's name, where the system tells; "" elsewhere.
std::string processor_name()
{
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0 && line.find(": ") != std::string::npos) {
            return line.substr(line.find(": ") + 2);
        }
    }
    return "";
}

/// Without the machine's own name, which is nobody's business.
std::string machine()
{
    struct utsname system = {};
    std::string words;
    if (uname(&system) == 0) {
        words = std::string(system.sysname) + ", " + system.machine;
    }
    const std::string processor = processor_name();
    return words + (processor.empty() ? "" : ", " + processor) + ", " + std::to_string(processors_given())
           + " processors given";
}

void add(list& facts, const std::string& name, const std::string& value)
{
    template_data fact{"name", name};
    fact.set("value", value);
    facts.push_back(fact);
}

}  // namespace

void add_facts(template_data& page, const run_summary& summary, const options& asked)
{
    list facts;
    for (const std::string& input : asked.inputs) {
        constexpr std::size_t most = 50;
        if (facts.size() == most) {
            add(facts, "input", "and " + std::to_string(asked.inputs.size() - most) + " more");
            break;
        }
        add(facts, "input", input);
    }
    add(facts, "frames of the input",
        std::to_string(summary.frame_size.width) + "x" + std::to_string(summary.frame_size.height) + ", "
            + std::to_string(summary.pictures) + " met");
    for (const auto& [name, given] : asked.written) {
        add(facts, "option", name + (given.value.empty() ? "" : " " + given.value));
    }
    add(facts, "frames turned", turn_name(summary.turn));
    add(facts, "tries", std::to_string(summary.tries));
    const nlohmann::ordered_json versions = versions_as_json();
    for (const auto& [name, version] : versions.items()) {
        add(facts, name, version.get<std::string>());
    }
    add(facts, "FFmpeg", av_version_info());
    add(facts, "machine", machine());
    add(facts, "threads", std::to_string(summary.threads));
    page.set("facts", facts);
}

}  // namespace tarn::host
