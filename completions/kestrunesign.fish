# Completion of kestrunesign for fish.
function __kestrunesign_keys
    set -l words (commandline -opc)
    set -l folder .
    for i in (seq (count $words))
        if test "$words[$i]" = -k; and test $i -lt (count $words)
            set folder $words[(math $i + 1)]
        end
    end
    for file in $folder/*.key
        string match -rg '^(.*)\.[a-z]\.[0-9]+\.key$' (basename $file)
    end | sort -u
end
complete -c kestrunesign -f
complete -c kestrunesign -o i -x -d 'texte à signer'
complete -c kestrunesign -o s -x -a '(__kestrunesign_keys)' -d 'nom de la clef de signature'
complete -c kestrunesign -o p -x -d 'mot de passe de la clef'
complete -c kestrunesign -o k -r -a '(__fish_complete_directories)' -d 'dossier des clefs, / à la fin'
complete -c kestrunesign -o v -d bavard
complete -c kestrunesign -o x -d 'afficher le bloc de signature'
