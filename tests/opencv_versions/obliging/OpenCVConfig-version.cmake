# SPDX-License-Identifier: Apache-2.0
#
# A version 5 that claims to suit whoever asks for a version 4.
set(PACKAGE_VERSION 5.0.0)
set(PACKAGE_VERSION_EXACT FALSE)
set(PACKAGE_VERSION_COMPATIBLE TRUE)
