# SPDX-License-Identifier: Apache-2.0
#
# Read after project(): packages are looked for where the command line says, and nowhere else.
set(CMAKE_FIND_USE_CMAKE_SYSTEM_PATH OFF)
set(CMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH OFF)
