// SPDX-License-Identifier: Apache-2.0
//
// Before each test's source: without further processes googletest has no tests of how one ends.
#pragma once

#include <gtest/gtest.h>

#ifndef EXPECT_EXIT
#define EXPECT_EXIT(statement, predicate, matcher) GTEST_SKIP() << "it needs a process of its own"
#endif
