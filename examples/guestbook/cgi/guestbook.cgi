#!/bin/sh
# Guestbook: shows the entries (GET) and takes a new one (POST).
#
# The file guestbook.path beside this program names the directory of the data: the
# settings guestbook.conf, the words of welcome.txt, and the entries.
# An entry is one line of entries.txt: date, name and message, divided by tabs; in the
# message a line end is written \n and a backslash \\.

set -u
# Visitors may write in any alphabet; here their text is counted and searched as bytes.
LC_ALL=C
PATH=/usr/local/bin:/usr/bin:/bin
export LC_ALL PATH

max_request=16384
# The longest entry stays below 4096 bytes, also when each byte of it has to be
# written as two: so it is appended by one write, and entries never mix.
max_name=100
max_message=1800

# Escapes standard input for a place in HTML, also within quotes.
escape() {
    sed -e 's/&/\&amp;/g' -e 's/</\&lt;/g' -e 's/>/\&gt;/g' \
        -e 's/"/\&quot;/g' -e "s/'/\\&#39;/g"
}

page_top() { # text of the title
    heading=$(printf '%s' "$1" | escape)
    style=$(printf '%s' "$pages_url" | escape)
    cat <<END
Content-Type: text/html; charset=utf-8
Content-Security-Policy: default-src 'none'; style-src 'self'; form-action 'self'
X-Content-Type-Options: nosniff
Cache-Control: no-cache

<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>$heading</title>
<link rel="stylesheet" href="$style/style/guestbook.css">
</head>
<body>
<h1>$heading</h1>
END
}

page_end() {
    printf '</body>\n</html>\n'
}

refuse() { # status, text
    # A server that cannot deliver the request to its end may not deliver the answer either.
    [ "$body_left" = no ] || cat >/dev/null
    printf 'Status: %s\n' "$1"
    page_top "$title"
    printf '<p>%s</p>\n<p><a href="guestbook.cgi">Back to the guestbook</a></p>\n' "$2"
    page_end
    exit 0
}

# Prints the second text when it is a plain number above 0, and else the first.
number() { # default, text
    case $2 in
    '' | *[!0-9]* | ????????*) echo "$1" ;;
    *[1-9]*) echo "$2" ;;
    *) echo "$1" ;;
    esac
}

read_settings() {
    title=Guestbook pages_url=/guestbook page_size=50 newest_first=true max_size=1048576
    here=.
    case $0 in
    */*) here=${0%/*} ;;
    esac
    data=
    [ -r "$here/guestbook.path" ] && IFS= read -r data <"$here/guestbook.path"
    entries=$data/entries.txt
    if [ -z "$data" ] || [ ! -r "$data/guestbook.conf" ]; then
        refuse '500 Internal Server Error' 'The settings of this guestbook cannot be read.'
    fi

    while IFS= read -r line || [ -n "$line" ]; do
        case $line in
        '#'* | [!=]*=*) ;;
        *) continue ;;
        esac
        key=${line%%=*}
        key=${key%"${key##*[![:space:]]}"}
        value=${line#*=}
        value=${value#"${value%%[![:space:]]*}"}
        value=${value%"${value##*[![:space:]]}"}
        case $key in
        title) title=$value ;;
        pages_url) pages_url=$value ;;
        newest_first) newest_first=$value ;;
        page_size) page_size=$(number "$page_size" "$value") ;;
        max_size) max_size=$(number "$max_size" "$value") ;;
        esac
    done <"$data/guestbook.conf"
}

# Prints the decoded value of a form field of the request in $body.
# Every decoded byte goes through printf's own octal escape: awk alone would make
# different things of the bytes above 127, depending on which awk it is.
field() { # name
    printf '%b' "$(printf '%s\n' "$body" | awk -v want="$1" '
        function decode(text,    out, at, high, low) {
            gsub(/\+/, " ", text)
            gsub(/\\/, "%5c", text)
            out = ""
            while ((at = index(text, "%")) > 0) {
                out = out substr(text, 1, at - 1)
                text = substr(text, at + 1)
                if (text ~ /^[0-9A-Fa-f][0-9A-Fa-f]/) {
                    high = index("0123456789abcdef", tolower(substr(text, 1, 1))) - 1
                    low = index("0123456789abcdef", tolower(substr(text, 2, 1))) - 1
                    out = out sprintf("\\0%03o", high * 16 + low)
                    text = substr(text, 3)
                } else {
                    out = out "%"
                }
            }
            return out text
        }
        {
            fields = split($0, pair, "&")
            for (i = 1; i <= fields; i++) {
                at = index(pair[i], "=")
                if (at > 0 && decode(substr(pair[i], 1, at - 1)) == want) {
                    print decode(substr(pair[i], at + 1))
                    exit
                }
            }
        }')"
}

take_entry() {
    case ${CONTENT_TYPE:-} in
    application/x-www-form-urlencoded | 'application/x-www-form-urlencoded;'*) ;;
    *) refuse '415 Unsupported Media Type' 'Please use the form of the guestbook.' ;;
    esac
    case ${CONTENT_LENGTH:-} in
    '' | *[!0-9]*) refuse '411 Length Required' 'The length of the request is missing.' ;;
    ??????*) refuse '413 Content Too Large' 'That is too long for this guestbook.' ;;
    esac
    [ "$CONTENT_LENGTH" -le "$max_request" ] ||
        refuse '413 Content Too Large' 'That is too long for this guestbook.'

    # Bytes that a form never sends are left out, so that the rest is one line of text.
    body=$(dd bs=1 count="$CONTENT_LENGTH" 2>/dev/null | tr -d '\000\r\n')
    body_left=no
    name=$(field name | tr '\t\r\n' '   ' | tr -d '\000-\037\177' |
        sed -e 's/  */ /g' -e 's/^ //' -e 's/ $//')
    message=$(field message | tr '\t' ' ' | tr -d '\000-\010\013-\037\177' |
        sed -e 's/ *$//' -e '/./,$!d')

    [ -n "$name" ] || refuse '400 Bad Request' 'Please say who you are.'
    [ -n "$message" ] || refuse '400 Bad Request' 'Please write a few words.'
    [ "${#name}" -le "$max_name" ] || refuse '400 Bad Request' 'That name is too long.'
    [ "${#message}" -le "$max_message" ] || refuse '400 Bad Request' 'That is too long.'

    if [ -e "$entries" ] && [ $(($(wc -c <"$entries"))) -ge "$max_size" ]; then
        refuse '507 Insufficient Storage' 'The guestbook is full. Please come back later.'
    fi
    message=$(printf '%s\n' "$message" | sed 's/\\/\\\\/g' |
        awk 'NR > 1 { printf "%s", "\\n" } { printf "%s", $0 }')
    # Should an earlier write have ended half way, the new entry begins on its own line.
    start=
    if [ -s "$entries" ] && [ -n "$(tail -c 1 "$entries")" ]; then
        start='
'
    fi
    printf '%s%s\t%s\t%s\n' "$start" "$(date -u '+%Y-%m-%d %H:%M')" "$name" "$message" \
        >>"$entries" ||
        refuse '500 Internal Server Error' 'The entry could not be stored. We are sorry.'

    # The browser fetches the page anew, so that reloading it does not send the entry again.
    printf 'Status: 303 See Other\nLocation: guestbook.cgi\nContent-Type: text/plain\n\n'
    echo 'Thank you.'
}

show_entries() {
    [ -r "$entries" ] || return 0
    awk -F '\t' -v limit="$page_size" -v newest_first="$newest_first" '
        function escape(text) {
            gsub(/&/, "\\&amp;", text)
            gsub(/</, "\\&lt;", text)
            gsub(/>/, "\\&gt;", text)
            gsub(/"/, "\\&quot;", text)
            return text
        }
        function lines(text,    out, at, mark) {
            out = ""
            while ((at = index(text, "\\")) > 0) {
                mark = substr(text, at + 1, 1)
                out = out substr(text, 1, at - 1) (mark == "n" ? "\n" : mark)
                text = substr(text, at + 2)
            }
            return out text
        }
        function show(entry,    part) {
            split(entry, part, "\t")
            printf "<div class=\"entry\">\n<h2>%s <time>%s</time></h2>\n", \
                escape(part[2]), escape(part[1])
            printf "<p class=\"message\">%s</p>\n</div>\n", escape(lines(part[3]))
        }
        NF == 3 { entry[count++] = $0 }
        END {
            first = count > limit ? count - limit : 0
            if (newest_first == "true")
                for (i = count - 1; i >= first; i--)
                    show(entry[i])
            else
                for (i = first; i < count; i++)
                    show(entry[i])
            if (first > 0)
                printf "<p>%d earlier entries are not shown.</p>\n", first
        }' "$entries"
}

show_book() {
    page_top "$title"
    if [ -r "$data/welcome.txt" ]; then
        printf '<p class="welcome">%s</p>\n' "$(escape <"$data/welcome.txt")"
    fi
    cat <<END
<form method="post" action="guestbook.cgi">
<label for="name">Your name</label>
<input id="name" name="name" maxlength="$max_name" required>
<label for="message">Your words</label>
<textarea id="message" name="message" rows="5" maxlength="$max_message" required></textarea>
<button>Sign the guestbook</button>
</form>
END
    show_entries
    printf '<p><a href="%s/index.html">Front page</a></p>\n' \
        "$(printf '%s' "$pages_url" | escape)"
    page_end
}

body_left=yes
case ${REQUEST_METHOD:-GET} in
GET | HEAD) body_left=no ;;
esac
read_settings
case ${REQUEST_METHOD:-GET} in
GET | HEAD) show_book ;;
POST) take_entry ;;
*)
    echo 'Allow: GET, HEAD, POST'
    refuse '405 Method Not Allowed' 'This guestbook can only be read and written.'
    ;;
esac
