# shellcheck shell=bash
# Sourced by lab/run.sh and lab/prepare.sh: which of lab/programs.txt are run, and how.

chosen=()  # names of programs; none: all
options=() # what each of them is given

choose() {
    local word
    for word in "$@"; do
        if [[ $word = -* ]]; then options+=("$word"); else chosen+=("$word"); fi
    done
}

# The machine's lines of lab/programs.txt, or those of the chosen programs; for ppc32be without those of a workstation
# where they could not be built.
listed() {
    local left_out='^#'
    [ "$1" != ppc32be ] || [ -e build/ppc32be-workstation/sandbox/bridge-sandbox ] || left_out='sandbox/'
    awk -v machine="$1" -v chosen=" ${chosen[*]} " -v left_out="$left_out" \
        '$1 == machine && (chosen ~ /^ *$/ ? $4 != "named" : index(chosen, " " $2 " ")) && $5 !~ left_out' lab/programs.txt
}

# Those programs, as paths in the machine's build.
files_of() {
    listed "$1" | awk '{ print $5 }' | sort -u
}

# plan MACHINE [FOLDER]: those lines as init reads them; FOLDER is the build's there.
plan() {
    listed "$1" | awk -v folder="${2:-}" -v options="${options[*]}" '{
            printf "%s\t%s\t%s\t%s/%s", $2, $3, $4, folder, $5
            for (i = 6; i <= NF; i++) printf "\t%s", $i
            if ($5 ~ /\/test_/ && options !~ /--gtest_brief/) printf "\t--gtest_brief=1"
            for (i = 1; i <= split(options, words, " "); i++) printf "\t%s", words[i]
            print ""
        }'
}
