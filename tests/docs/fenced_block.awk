# Prints the body of one fenced code block of a Markdown file, to standard output or to
# the file `out`.
#   awk -v lang=cpp [-v nth=N] [-v after=LANG] [-v out=FILE] -f fenced_block.awk FILE
# The N-th block (from 1, default 1) whose fence names `lang`; with `after`, the first
# `lang` block that follows the N-th `after` block.  Nothing is printed when there is none.
BEGIN { if (nth == "") nth = 1; anchor = after == "" ? lang : after; seen = 0; state = "" }
/^```/ {
    if (state != "") {  # closing fence
        if (state == "want") exit
        state = ""
        next
    }
    fence = substr($0, 4)
    if (fence == anchor && seen < nth) {
        seen++
        if (seen == nth && after == "") { state = "want"; next }
        state = "skip"
        next
    }
    if (seen == nth && after != "" && fence == lang) { state = "want"; next }
    state = "skip"
    next
}
state == "want" { if (out == "") print; else print > out }
