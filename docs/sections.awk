# Shows Doxygen the header's sections: each becomes a group of functions under the section's title, with the comment
# that opens it as its description, and what is indented there as code.
/^\/\* ---- .* -+ \*\/$/ {
    if (open) print "/** @} */"
    title = $0
    sub(/^\/\* ---- /, "", title)
    sub(/ -+ \*\/$/, "", title)
    open = opening = 1
    next
}
opening && /^\/\*$/ { print "/** @name " title; print " *"; inside = 1; next }
opening && /^$/ { print; next }
opening && inside {
    indented = /^ \*  +[^ ]/
    if (indented && !code) print " * @code{.c}"
    if (code && !indented && !/^ \*$/) { print " * @endcode"; code = 0 }
    if (indented) code = 1
    print
    if (/\*\/$/) { print "/** @{ */"; opening = inside = code = 0 }
    next
}
opening { print "/** @name " title " */"; print "/** @{ */"; opening = 0 }
/^#if defined\(__GNUC__\)$/ && open { print "/** @} */"; open = 0 }
{ print }
