#pragma once

// Names a parameterised test after its case's `name`, with every character that
// gtest does not allow in a test name made '_'.

#include <gtest/gtest.h>

#include <cctype>
#include <string>

namespace qk::test {

struct CaseName {
    template <typename Case>
    std::string operator()(const ::testing::TestParamInfo<Case>& info) const {
        std::string name = info.param.name;
        for (char& c : name) {
            if (!std::isalnum(static_cast<unsigned char>(c))) {
                c = '_';
            }
        }
        return name;
    }
};

}  // namespace qk::test
