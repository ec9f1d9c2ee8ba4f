# Doxygen's view of a header: what the house's style leaves to the reader is said for it.
# A declaration right below another one shares its comment; what the language defines by itself is left out; moving
# and copying get their usual words.
function start_of_scope(text) { return text ~ /^(template.*)?(namespace|class|struct|enum|union|extern|public:|protected:|private:|#|\})/ }
function is_special(text) { return text ~ /= (default|delete);/ || text ~ /^(virtual )?~[A-Za-z]+\(\)[^{]*;/ }
function usual(text) {
    if (text ~ /^~/) return "Frees what it holds."
    if (text ~ /^explicit operator bool/) return "Whether there is something in it."
    if (text ~ /^void Swap\(/) return "Exchanges what both hold."
    if (text ~ /^void Reset\(\)/) return "Leaves it empty."
    if (text ~ /operator->\(\)/) return "For the members of what it holds."
    if (text ~ /\) (const )?(noexcept )?(override|final)/) return "As the interface says."
    return ""
}
function forget() { doc = ""; tail = "" }
{
    text = $0; sub(/^ +/, "", text)
    if (depth > 0 || unfinished) {  # the rest of a declaration
        print
    } else if (text ~ /^\/\/\/($|[^<])/) {
        if (!in_doc)
            forget()
        doc = doc $0 "\n"; in_doc = 1
        print; next
    } else if (is_special(text)) {
        print ""; next
    } else if (text == "" || text ~ /^\/\// || start_of_scope(text)) {
        if (text ~ /;$/ || text == "" || text ~ /^#/ || text ~ /^[^{]*\{$/ || text ~ /^(public|protected|private):/ || text ~ /^(\}|\/\/)/)
            forget()
        in_doc = 0; print; next
    } else {
        if (!in_doc && match(text, /^(explicit )?([A-Za-z]+)\(([A-Za-z]+)&& [a-z]+\)/) || text ~ /operator=\([A-Za-z]+&& /)
            print "    /// Takes over what the other one holds, and leaves that empty."
        else if (!in_doc && (match(text, /^[A-Z][A-Za-z]+\(const [A-Za-z]+& other\)/) || text ~ /operator=\(const [A-Za-z]+& other\)/))
            print "    /// A copy, as the class says."
        else if (!in_doc && usual(text) != "" && text !~ /\/\/\/</)
            print "    /// " usual(text)
        else if (!in_doc && doc != "" && text !~ /\/\/\/</)
            printf "%s", doc
        in_doc = 0
        if (match($0, /\/\/\/<.*/)) {
            tail = substr($0, RSTART); doc = ""
        } else if (tail != "" && doc == "" && text ~ /;$/) {
            $0 = $0 "  " tail
        }
        print
    }
    code = text; sub(/\/\/.*/, "", code); sub(/ +$/, "", code)
    opened = gsub(/\{/, "{", code); closed = gsub(/\}/, "}", code)
    depth += opened - closed
    unfinished = depth == 0 && code != "" && code !~ /[;}]$/
}
