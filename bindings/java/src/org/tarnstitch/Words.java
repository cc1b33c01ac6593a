// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/** The library's clauses as sentences for a screen. */
final class Words {
    private Words() {}

    static String sentence(String clause) {
        return clause.isEmpty() ? "" : Character.toUpperCase(clause.charAt(0)) + clause.substring(1) + ".";
    }
}
