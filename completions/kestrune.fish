# Completion of kestrune for fish. Commands and options are those that its help shows, in its language.
function __kestrune_command
    set -l words (commandline -opc)
    set -l chosen
    set -l skip 0
    for word in $words[2..-1]
        if test $skip = 1
            set skip 0
        else if contains -- $word -k --keys --color
            set skip 1
        else if not string match -q -- '-*' $word
            if test (count $chosen) -eq 0; or test "$chosen" = keys
                set -a chosen $word
            end
        end
    end
    test (count $chosen) -gt 0; and printf '%s\n' $chosen
end
# PATTERN: names of the key folder's files.
function __kestrune_keys
    set -l words (commandline -opc)
    set -l data $HOME/.local/share
    set -q XDG_DATA_HOME; and set data $XDG_DATA_HOME
    set -l folder $data/kestrune/keys
    set -q KESTRUNE_KEYS; and set folder $KESTRUNE_KEYS
    for i in (seq (count $words))
        if contains -- $words[$i] -k --keys; and test $i -lt (count $words)
            set folder (string replace -r '^~' $HOME -- $words[(math $i + 1)])
        end
    end
    command ls -- $folder 2>/dev/null | sed -n $argv[1] | sort -u
end
function __kestrune_rows
    set -l words (commandline -opc)
    $words[1] (__kestrune_command) --help 2>/dev/null | sed -n $argv[1]
end
function __kestrune_complete
    set -l chosen (__kestrune_command)
    set -l words (commandline -opc)
    set -l now (commandline -ct)
    switch "$chosen[1] $words[-1]"
        case '* -k' '* --keys' 'open -o' 'open --output'
            __fish_complete_directories $now
        case '* --color'
            printf '%s\n' auto always never
        case '* -s' '* --signer'
            __kestrune_keys 's/\.[a-z]\.[0-9]*\.key$//p'
        case '* -u' '* --user'
            __kestrune_keys '/^Master\./d; s/\.2[0-9][0-9]$//p'
        case 'encrypt --to'
            __kestrune_keys 's/\.pem$//p'
        case '* --to' '* --cc' '* --bcc' '* --reply-to' '* --subject' '* --date' '* --deadline' '* -j' '* --jobs' '*-fd'
        case '* -o' '* --output' '* --*file' '* --attach' '* --eml' '* --xml'
            __fish_complete_path $now
        case '*'
            if string match -q -- '-*' $now
                __kestrune_rows 's/^  \(-[a-z]\), \(--[a-z-]*\).*/\1\n\2/p; s/^      \(--[a-z-]*\).*/\1/p'
            else if test (count $chosen) -eq 0; or test "$chosen" = keys
                __kestrune_rows 's/^  \([a-z]\{1,\}\)   *\(.*\)/\1\t\2/p'
            else if not contains -- $chosen[1] explain bench
                __fish_complete_path $now
            end
    end
end
complete -c kestrune -f -a '(__kestrune_complete)'
