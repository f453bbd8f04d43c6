#compdef velo
# Completion of velo for zsh: what can be typed next is what `velo complete` says.
local -a found
found=("${(@f)$($words[1] complete -- "${(@)words[2,CURRENT]}" 2>/dev/null)}")
if [[ $found[1] == :files ]]; then
  _files
else
  compadd -- $found
fi
