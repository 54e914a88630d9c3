# Doxygen's INPUT_FILTER for the public headers: the headers are documented with plain
# `//` comments, and this turns them into Doxygen's comments without touching the files.
# Line for line (so warnings point at the right line of the real file):
#   - the comment block that opens a header is its file description (`/// ... \file`);
#   - a comment line of its own documents the declaration below it (`///`);
#   - a comment after code on the same line documents that member (`///<`), and comment
#     lines right below it, indented to the same column, continue it.
# Comments inside function bodies stay plain comments: they explain code, not the API.

# Column of the `//` that starts a trailing comment, or 0: the first `//` outside a
# string or character literal, with code before it.
function trailing_comment(line,    i, c, quote, n) {
    quote = ""
    n = length(line)
    for (i = 1; i < n; i++) {
        c = substr(line, i, 1)
        if (quote != "") {
            if (c == "\\") i++
            else if (c == quote) quote = ""
        } else if (c == "\"" || c == "'") {
            quote = c
        } else if (c == "/" && substr(line, i + 1, 1) == "/") {
            return substr(line, 1, i - 1) ~ /[^ \t]/ ? i : 0
        }
    }
    return 0
}

function count(s, ch,    t) {
    t = s
    return gsub(ch, "", t)
}

FNR == 1 { opening = 1; depth = 0; member_column = 0 }

{
    line = $0
    if (opening) {
        if (line ~ /^\/\//) {
            sub(/^\/\//, "///", line)
            print line
            next
        }
        opening = 0
        if (line ~ /^#pragma once/ || line ~ /^[ \t]*$/) {
            print "/// \\file"
            next
        }
    }
    # Depth in function bodies: braces opened after a `)` (or in a body) and not closed.
    body = depth > 0
    if (line ~ /^[ \t]*\/\//) {
        indent = match(line, /\/\//)
        if (body) {
            print line
        } else if (member_column > 0 && indent == member_column) {
            sub(/\/\//, "///<", line)
            print line
        } else {
            member_column = 0
            sub(/\/\//, "///", line)
            print line
        }
        next
    }
    member_column = 0
    code = line
    at = trailing_comment(line)
    if (at > 0) code = substr(line, 1, at - 1)
    if (!body && code ~ /\)[^;{}]*\{/ || body) {
        depth += count(code, "{") - count(code, "}")
        if (depth < 0) depth = 0
    }
    if (at > 0 && !body && code !~ /^[ \t]*[}#]/ && code !~ /\{[ \t]*$/) {
        line = substr(line, 1, at - 1) "///<" substr(line, at + 2)
        member_column = at
    }
    print line
}
