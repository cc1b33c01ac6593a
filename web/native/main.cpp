// SPDX-License-Identifier: Apache-2.0
//
// The module has functions that JavaScript calls, and nothing to do by itself.
int main()
{
    return 0;
}
