# Completion of tavimora-cli for fish. Commands, options and ports are those that the program itself tells.

complete -c tavimora-cli -n '__fish_use_subcommand; or __fish_seen_subcommand_from help' -f \
    -a '(tavimora-cli help | string match -rg "tavimora-cli ([a-z]+) ")'
complete -c tavimora-cli -n 'not __fish_use_subcommand; and string match -q -- "-*" (commandline -ct)' \
    -a '(tavimora-cli help (commandline -opc)[2] | string match -rg "^  .*(--[a-z-]+)")'
complete -c tavimora-cli -n '__fish_seen_subcommand_from info verify burn station' -x -l port -a '(tavimora-cli ports)'
