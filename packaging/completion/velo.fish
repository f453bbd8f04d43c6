# Completion of velo for fish: what can be typed next is what `velo complete` says.
function __velo_complete
    set -l words (commandline -opc)
    set -l found ($words[1] complete -- $words[2..-1] (commandline -ct) 2>/dev/null)
    if test "$found[1]" = :files
        __fish_complete_path (commandline -ct)
    else
        printf '%s\n' $found
    end
end
complete -c velo -f -a '(__velo_complete)'
