# Combines scripts that follow one another into one that changes each file once:
# every script rewrites the files that it removes lines from, which is what
# takes the time when they are large.
#
# Input: first "LINES NAME" for each file as it stands, then a line "-", then
# the joined scripts. A line has one place for good: its number in the file as
# it stands, or, if a script added it, a number after those. Exit status 1:
# this cannot be combined, or one of the scripts does not apply.

BEGIN { half = 2 ^ 25 }

header && $0 == "-" { header = 0; next }
NR == 1 { header = 1 }
header { size[$2] = original[$2] = $1; next }

function refuse() { failed = 1; exit 1 }

# The text of the script's line after that many words.
function rest(words,   text) {
    text = $0
    while (words-- > 0) text = substr(text, index(text, " ") + 1)
    return text
}

function begins(text, start) { return substr(text, 1, length(start)) == start }

# `gone` is a binary indexed tree of the lines removed, by place.
function place_of(number,   at, step, left) {
    for (step = half; step >= 1; step /= 2) {
        left = step - gone[file, at + step]
        if (left < number) { number -= left; at += step }
    }
    if (at + 1 > size[file]) refuse()
    return at + 1
}

function remove(place,   step) {
    removed[file, place] = 1
    for (step = 1; place <= half; ) {
        while (place % (step * 2) == 0) step *= 2
        gone[file, place]++
        place += step
    }
}

function delete_line(place, start) {
    if ((file, place) in text) {
        if (!begins(text[file, place], start)) refuse()
    } else if (place <= original[file])
        before[file, place] = start
    if (place <= original[file]) touch(place)
    remove(place)
}

function exchange(place, start, now) {
    if ((file, place) in text) {
        if (!begins(text[file, place], start)) refuse()
    } else {
        before[file, place] = start
        touch(place)
    }
    text[file, place] = now
}

function touch(place) {
    if ((file, place) in touched) return
    touched[file, place] = 1
    places[file, ++count[file]] = place
}

$1 == "OPEN" && NF == 2 && file == "" {
    file = $2
    if (!(file in known)) { known[file] = 1; files[++number_of_files] = file }
    changes = 0
    end = size[file] + 0
    next
}
file == "" { refuse() }
$1 == "ADD" { text[file, ++size[file]] = rest(1); next }
$1 == "DEL" && NF >= 3 { verb[++changes] = "DEL"; line[changes] = $2; start[changes] = rest(2); next }
$1 == "XCHG" && NF >= 4 {
    verb[++changes] = "XCHG"
    line[changes] = $2
    start[changes] = $3
    now[changes] = rest(3)
    next
}
$1 == "CLOSE" && NF == 1 {
    # Numbers are those of the file as this script finds it.
    for (i = 1; i <= changes; i++) {
        target[i] = place_of(line[i])
        if (target[i] > end || (i > 1 && line[i] <= line[i - 1])) refuse()
    }
    for (i = 1; i <= changes; i++) {
        if (verb[i] == "DEL") delete_line(target[i], start[i])
        else exchange(target[i], start[i], now[i])
    }
    file = ""
    next
}
{ refuse() }

END {
    if (failed || file != "") exit 1
    for (f = 1; f <= number_of_files; f++) {
        file = files[f]
        print "OPEN " file
        for (i = 1; i <= count[file]; i++) {
            place = places[file, i]
            if ((file, place) in removed) print "DEL " place " " before[file, place]
            else print "XCHG " place " " before[file, place] " " text[file, place]
        }
        for (place = original[file] + 1; place <= size[file]; place++)
            if (!((file, place) in removed)) print "ADD " text[file, place]
        print "CLOSE"
    }
}
