// SPDX-License-Identifier: Apache-2.0
//
// A walk along the command line.
#include "written_options.h"

#include <algorithm>
#include <numeric>
#include <sstream>

namespace tarn::host {

namespace {

bool has_name(const option_row& row, const std::string& name)
{
    std::istringstream names(row.names);
    for (std::string one; std::getline(names, one, ',');) {
        if (one == name) {
            return true;
        }
    }
    return false;
}

/// What a user may have meant by a name that there is not: a long name that begins with it, or else the one that least
/// has to be changed to become it, by two characters at most; "" if there is none.
std::string meant_by(const std::string& name)
{
    constexpr std::size_t dashes = 2;
    for (const option_row& row : option_table()) {
        if (name.size() > dashes && !is_positional(row) && long_name(row).compare(0, name.size(), name) == 0) {
            return long_name(row);
        }
    }
    std::string nearest;
    std::size_t least = 3;
    for (const option_row& row : option_table()) {
        const std::string other = long_name(row);
        // The changes that make a name's beginnings into the other's, row by row.
        std::vector<std::size_t> changes(other.size() + 1);
        std::iota(changes.begin(), changes.end(), std::size_t{0});
        for (const char character : name) {
            std::size_t diagonal = changes[0]++;
            for (std::size_t j = 0; j < other.size(); ++j) {
                const std::size_t replaced = diagonal + (character == other[j] ? 0 : 1);
                diagonal = changes[j + 1];
                changes[j + 1] = std::min({replaced, changes[j] + 1, changes[j + 1] + 1});
            }
        }
        if (!is_positional(row) && changes.back() < least) {
            least = changes.back();
            nearest = other;
        }
    }
    return nearest;
}

std::string unknown(const std::string& name)
{
    const std::string meant = meant_by(name);
    return "there is no option " + name + (meant.empty() ? "" : "; do you mean " + meant + "?");
}

/// The walk.
class walk {
public:
    walk(int argc, const char* const* argv) : arguments_(argv + std::min(argc, 1), argv + argc)
    {
    }

    void go()
    {
        for (; place_ < arguments_.size() && arguments_[place_] != "--"; ++place_) {
            const std::string& argument = arguments_[place_];
            // "-" and numbers are no options; inputs with such names do not exist, and that is what will be said.
            if (argument.size() < 2 || argument[0] != '-' || (argument[1] >= '0' && argument[1] <= '9')) {
                continue;
            }
            if (argument[1] == '-') {
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

    void take_long(const std::string& argument)
    {
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const option_row* const row = row_named(name);
        if (row == nullptr) {
            complain(unknown(name));
        } else if (equals == std::string::npos) {
            take(*row, name);
        } else if (row->kind == value_kind::none) {
            complain(name + " takes no value");
        } else if (equals + 1 == argument.size()) {
            complain(without_value(*row, name));
        } else {
            add(*row, name);
        }
    }

    /// Flags may stand together, and a value behind its option: "-qofile".
    void take_short(const std::string& argument)
    {
        for (std::size_t i = 1; i < argument.size(); ++i) {
            const std::string name = {'-', argument[i]};
            const option_row* const row = row_named(name);
            if (row == nullptr) {
                complain(unknown(i == 1 ? argument : std::string(name).append(" (in ").append(argument).append(")")));
                return;
            }
            if (row->kind != value_kind::none && i + 1 < argument.size()) {
                if (argument[i + 1] == '=') {
                    const std::string value = argument.substr(i + 2);
                    std::string message = "a value follows ";
                    message.append(name).append(" without \"=\": ").append(name).append(" ");
                    message.append(value.empty() ? row->value : value);
                    complain(message);
                }
                add(*row, name);
                return;
            }
            take(*row, name);
        }
    }

    /// An option whose value, if it takes one, is the next argument.
    void take(const option_row& row, const std::string& name)
    {
        if (row.kind != value_kind::none) {
            const bool there = place_ + 1 < arguments_.size() && arguments_[place_ + 1] != "--";
            const std::string next = there ? arguments_[place_ + 1] : "";
            if (!there || row_named(next.substr(0, next.find('='))) != nullptr) {
                complain(without_value(row, name));
            } else {
                ++place_;
            }
        }
        add(row, name);
    }

    void add(const option_row& row, const std::string& name)
    {
        const bool before = std::any_of(options.begin(), options.end(),
                                        [&row](const written_option& other) { return other.row == &row; });
        if (before && row.kind != value_kind::none) {
            complain(name + " is given more than once");
        }
        options.push_back({&row, name});
    }

    static std::string without_value(const option_row& row, const std::string& name)
    {
        return name
               + " needs a value: " + (row.kind == value_kind::words ? listed(row.choices) : name + " " + row.value);
    }

    std::vector<std::string> arguments_;
    std::size_t place_ = 0;
};

}  // namespace

const option_row* row_named(const std::string& name)
{
    const std::vector<option_row>& table = option_table();
    const auto found =
        std::find_if(table.begin(), table.end(), [&name](const option_row& row) { return has_name(row, name); });
    return found == table.end() || is_positional(*found) ? nullptr : &*found;
}

std::string listed(const char* words)
{
    std::istringstream stream(words);
    std::string all;
    std::string last;
    for (std::string word; stream >> word; last = word) {
        all += (all.empty() || last.empty() ? "" : ", ") + last;
    }
    return all + " or " + last;
}

std::vector<written_option> written_options(int argc, const char* const* argv, std::string& wrong)
{
    walk along(argc, argv);
    along.go();
    wrong = along.wrong;
    return along.options;
}

}  // namespace tarn::host
