// SPDX-License-Identifier: Apache-2.0
//
// A walk along a command line.
#include "command_line.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <sstream>
#include <system_error>

namespace tarn::host {

namespace {

bool takes_value(const option_row& row)
{
    return row.kind != value_kind::none;
}

/// The row of the option with this name, "-o" or "--output"; null if there is none.
const option_row* row_named(const std::string& name)
{
    for (const option_row& row : option_table()) {
        const std::string names = "," + std::string(row.names) + ",";
        if (!is_positional(row) && names.find("," + name + ",") != std::string::npos) {
            return &row;
        }
    }
    return nullptr;
}

/// How many characters have to be changed, added or left out to make one text the other.
std::size_t changes_between(const std::string& one, const std::string& other)
{
    std::vector<std::size_t> changes(other.size() + 1);  // from the part of `one` so far to each beginning of `other`
    std::iota(changes.begin(), changes.end(), std::size_t{0});
    for (const char character : one) {
        std::size_t diagonal = changes[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (character == other[j] ? 0 : 1);
            diagonal = changes[j + 1];
            changes[j + 1] = std::min({replaced, changes[j] + 1, changes[j + 1] + 1});
        }
    }
    return changes.back();
}

/// What is said of a name that there is not, with what may have been meant: a long name that begins with it, or else
/// the one nearest to it, with two changes at most.
std::string unknown(const std::string& name)
{
    constexpr std::size_t dashes = 2;
    std::string nearest;
    std::size_t least = 3;
    for (const option_row& row : option_table()) {
        const std::string other = long_name(row);
        const bool begins = name.size() > dashes && other.compare(0, name.size(), name) == 0;
        const std::size_t changes = begins ? 0 : changes_between(name, other);
        if (!is_positional(row) && changes < least) {
            least = changes;
            nearest = other;
        }
    }
    return "there is no option " + name + (nearest.empty() ? "" : "; do you mean " + nearest + "?");
}

class walk {
public:
    walk(int argc, const char* const* argv) : arguments_(argv + std::min(argc, 1), argv + argc)
    {
    }

    void go()
    {
        const auto inputs = std::find_if(option_table().begin(), option_table().end(), is_positional);
        bool options_go_on = true;
        for (; place_ < arguments_.size(); ++place_) {
            const std::string& argument = arguments_[place_];
            // "-" and numbers are no options; inputs with such names do not exist, and that is what will be said.
            const bool is_option =
                argument.size() > 1 && argument[0] == '-' && (argument[1] < '0' || argument[1] > '9');
            if (!options_go_on || !is_option) {
                if (options_go_on && place_ > 0) {
                    complain_of_gap(arguments_[place_ - 1], argument);
                }
                options.push_back({&*inputs, "", argument});
            } else if (argument == "--") {
                options_go_on = false;
            } else if (argument[1] == '-') {
                take_long(argument);
            } else {
                take_short(argument);
            }
        }
    }

    std::vector<written_option> options;
    std::string wrong;

private:
    void complain(const std::string& sentence)
    {
        wrong = wrong.empty() ? sentence : wrong;
    }

    void complain_of_no_value(const option_row& row, const std::string& name)
    {
        complain(
            name + " needs a value: "
            + (row.kind == value_kind::words || row.value[0] == '\0' ? listed(row.choices) : name + " " + row.value));
    }

    /// Of a word that belongs to the flag before it, and would be taken for an input: "--crop auto".
    void complain_of_gap(const std::string& flag, const std::string& word)
    {
        const option_row* const row = row_named(flag);
        if (row == nullptr || takes_value(*row)) {
            return;
        }
        const std::string words = " " + std::string(row->choices) + " ";
        std::error_code error;
        if (words.find(" " + word + " ") != std::string::npos && !std::filesystem::exists(word, error)) {
            complain(flag + " and its word are joined by \"=\": " + flag + "=" + word);
        }
    }

    void take_long(const std::string& argument)
    {
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const option_row* const row = row_named(name);
        if (row == nullptr) {
            complain(unknown(name));
        } else if (equals == std::string::npos) {
            take(*row, name);
        } else if (!takes_value(*row) && *row->choices == '\0') {
            complain(name + " takes no value");
        } else if (equals + 1 == argument.size()) {
            complain_of_no_value(*row, name);
        } else {
            add(*row, name, argument.substr(equals + 1));
        }
    }

    void take_short(const std::string& argument)
    {
        for (std::size_t i = 1; i < argument.size(); ++i) {
            const std::string name = {'-', argument[i]};
            const option_row* const row = row_named(name);
            if (row == nullptr) {
                complain(unknown(i == 1 ? argument : std::string(name).append(" (in ").append(argument).append(")")));
                return;
            }
            if (takes_value(*row) && i + 1 < argument.size()) {
                const std::string value = argument.substr(i + 1);
                if (value[0] == '=') {
                    const std::string meant = value.size() > 1 ? value.substr(1) : row->value;
                    complain(std::string("a value follows ").append(name).append(" without \"=\": ").append(name) + " "
                             + meant);
                }
                add(*row, name, value);
                return;
            }
            take(*row, name);
        }
    }

    /// An option whose value, if it takes one, is the next argument.
    void take(const option_row& row, const std::string& name)
    {
        std::string value;
        if (takes_value(row)) {
            const bool there = place_ + 1 < arguments_.size() && arguments_[place_ + 1] != "--";
            value = there ? arguments_[place_ + 1] : "";
            if (!there || row_named(value.substr(0, value.find('='))) != nullptr) {
                complain_of_no_value(row, name);
            } else {
                ++place_;
            }
        }
        add(row, name, value);
    }

    void add(const option_row& row, const std::string& name, const std::string& value)
    {
        const auto is_same = [&row](const written_option& other) { return other.row == &row; };
        if (takes_value(row) && std::any_of(options.begin(), options.end(), is_same)) {
            complain(name + " is given more than once");
        }
        options.push_back({&row, name, value});
    }

    std::vector<std::string> arguments_;
    std::size_t place_ = 0;
};

}  // namespace

std::string listed(const char* words)
{
    std::string all = words;
    all.replace(all.rfind(' '), 1, " or ");
    for (std::size_t at = all.find(' '); at < all.rfind(" or "); at = all.find(' ', at + 2)) {
        all.insert(at, ",");
    }
    return all;
}

std::vector<written_option> written_options(int argc, const char* const* argv, std::string& wrong)
{
    walk along(argc, argv);
    along.go();
    wrong = along.wrong;
    return along.options;
}

}  // namespace tarn::host
