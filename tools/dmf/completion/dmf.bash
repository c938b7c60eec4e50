# Bash completion for dmf. Works with and without the bash-completion package.

# The commands and options below a chain of commands such as "uri make".
_dmf_words() {
    case $1 in
    "") echo "uri info model modeldb resolve discover devices send plugins plugin simulate log device-id credentials lock doctor --version --log-file" ;;
    "uri") echo "parse make generate" ;;
    "uri make") echo "usb ip host bonjour" ;;
    "uri make usb") echo "--product --vendor --serial --scheme" ;;
    "uri make ip" | "uri make host") echo "--scheme" ;;
    "uri make bonjour") echo "--type --domain --scheme" ;;
    "uri generate") echo "--class --scheme" ;;
    "info") echo "--class" ;;
    "model") echo "list show value" ;;
    "model value") echo "--table --location" ;;
    "plugin") echo "new" ;;
    "modeldb") echo "pack unpack list verify" ;;
    "device-id") echo "--class --timeout" ;;
    "resolve") echo "--class --timeout" ;;
    "discover") echo "--types --channel --timeout --follow" ;;
    "devices") echo "--types --channel --timeout --follow --why" ;;
    "send") echo "--class --channel --timeout --answer" ;;
    "simulate") echo "--port --answer --drop-after --never-read --slow --vendor --product" ;;
    "credentials") echo "store show" ;;
    "credentials store" | "credentials show") echo "--class" ;;
    "lock") echo "--timeout" ;;
    "log") echo "nolog info warnings errors debug debug2 --shared" ;;
    esac
}

_dmf() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local chain="" word i known
    COMPREPLY=()

    case $previous in
    --class)
        mapfile -t COMPREPLY < <(compgen -W "printer scanner fax storage" -- "$current")
        return
        ;;
    --channel)
        local IFS=$'\n'
        mapfile -t COMPREPLY < <(compgen -W $'Print\nScan\nEcho\nLEDM\nPML' -- "$current")
        return
        ;;
    --types)
        mapfile -t COMPREPLY < <(compgen -W "USB Rendezvous IP Bluetooth Simulated" -- "$current")
        return
        ;;
    --log-file | --location)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --timeout | --port | --drop-after | --slow | --scheme | --product | --vendor | --serial | --type | --domain | --table | --shared)
        return
        ;;
    esac

    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ $word == -* ]] && continue
        known=" $(_dmf_words "$chain") "
        # Only what names a command goes on the chain; the rest are values.
        [[ $known == *" $word "* ]] && chain=${chain:+$chain }$word
    done

    local common="--json --quiet --help"
    mapfile -t COMPREPLY < <(compgen -W "$(_dmf_words "$chain") $common" -- "$current")
    # Without an option or a command to offer, the word is most likely a file.
    case $chain in
    send | "modeldb "*)
        if [[ $current != -* ]]; then
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        ;;
    esac
}

complete -F _dmf dmf
