// What virtual paths do, the naive way: paths and expressions taken apart into lists. For any units.
#pragma once

#include "TavPort.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

struct ExpressionModel {
    using Text = std::basic_string<TavChar>;

    std::map<std::string, Text> values;  // by name
    std::map<std::string, Text> folders; // by key, without the zeros at its end

    static std::vector<Text> SplitAt(const Text& text, TavChar separator);

    // Nothing where canonicalisation fails.
    static std::optional<Text> Canonical(const Text& path);

    // An expression with a segment, or the name of a value, appended.
    static Text WithSegment(Text expression, Text segment);
    static Text WithValue(const Text& expression, const std::string& name);

    // The path that an expression stands for; `base` may be null.
    std::optional<Text> Evaluate(const Text& expression, const Text* base) const;

    // The expression "$$key…" for a path at or below a folder.
    static std::optional<Text> Express(const Text& path, const std::string& key, const Text& folder);

private:
    void AppendVariable(Text& path, const Text& name) const;
    std::optional<Text> Collect(const Text& expression, const Text* base) const;
};
