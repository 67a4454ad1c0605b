# fish completion for kx, kxsetup and kx-init. What fits is known to kx; where nothing does, an
# argument is the name of a file.
function __kx_complete
    set -l lines (kx complete (commandline -opc) "$(commandline -ct)" 2>/dev/null)
    if set -q lines[1]
        printf '%s\n' $lines
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c kx -c kxsetup -c kx-init -f -a '(__kx_complete)'
