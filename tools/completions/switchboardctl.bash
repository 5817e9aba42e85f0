# Completion of switchboardctl's verbs and options in bash.
#
# Needs nothing but bash itself. Identifiers, names and times are not completed: only their owner knows them.
# shellcheck shell=bash

# The options of a verb; of none, what may stand before one.
_switchboardctl_options() {
    printf '%s\n' -h --help --version --user --system -j --json -q --quiet -v --verbose --no-legend --no-pager --color \
        --timeout
    case $1 in
        ping) printf '%s\n' --count -o --output ;;
        publish) printf '%s\n' --component-version --build-number ;;
        query) printf '%s\n' -o --output ;;
        wait) printf '%s\n' --gone ;;
        post) printf '%s\n' --source --info --info-json ;;
        monitor) printf '%s\n' --source --count -o --output ;;
        prefs) printf '%s\n' --type -o --output ;;
        locations) printf '%s\n' -o --output ;;
        log)
            printf '%s\n' -f --follow -n --lines --since --until --id --class --program --pid --grep --tree --file
            ;;
        path)
            printf '%s\n' -l --long -a --all --sort --reader --depth -x --one-volume --browsable -o --output
            ;;
    esac
}

# The columns that --output of a verb knows; for path, of what it is to do.
_switchboardctl_columns() {
    case $1 in
        ping) printf '%s\n' seq time ;;
        query) printf '%s\n' id pid user uid gid process ;;
        monitor) printf '%s\n' time name source info ;;
        prefs) printf '%s\n' key type value ;;
        locations) printf '%s\n' name exists mode owner group path ;;
        path) _switchboardctl_path_columns "$2" ;;
    esac
}

_switchboardctl_path_columns() {
    case $1 in
        stat)
            printf '%s\n' path name extension display_name display_path url kind type exists kept_by_backups size \
                allocated data_length resource_length target entries mount_point links hard_link permissions mode \
                owner_id owner group_id group access flags acl created modified changed id device script hidden \
                hidden_extension excluded_from_backup package volume_identifier volume volume_relative_path real_path \
                transfer_size_min transfer_size_max file_size_bits
            ;;
        ls | tree)
            printf '%s\n' mode links owner group size modified kind allocated data_length owner_id group_id access \
                flags created changed id device target path name
            ;;
        volumes)
            printf '%s\n' path name display_path type device fsid uuid synthetic_uuid device_number mounted_by_id \
                mounted_by created data_volume total free available block_size transfer_size files files_free \
                file_size_max mount_bits flags format interfaces {,native_}{common,volume,directory,file}_attributes
            ;;
    esac
}

_switchboardctl() {
    local verbs='version build ping publish query call wait post monitor archive prefs locations path log'
    local verb='' action='' option='' ended='' words=0 i word

    # What stands before the cursor: the verb, how many words follow it, and an option that still wants its value.
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == = ]]; then
            # An option with its value behind an equals sign is three words to bash.
            option=${COMP_WORDS[i - 1]}
        elif [[ -n $option ]]; then
            option=''
        elif [[ -z $ended && $word == -- ]]; then
            ended=yes
        elif [[ -z $ended && $word == -* ]]; then
            case $word in
                --color | --timeout | --count | --component-version | --build-number | --source | --info | --info-json | \
                    --type | --sort | --reader | --depth | -n | --lines | --since | --until | --id | --class | --program | \
                    --pid | --grep | --file | -o | --output) option=$word ;;
            esac
        elif [[ -z $verb ]]; then
            verb=$word
        else
            [[ $words == 0 ]] && action=$word
            words=$((words + 1))
        fi
    done

    local current=${COMP_WORDS[COMP_CWORD]} choices='' prefix=''
    if [[ $current == = ]]; then
        option=${COMP_WORDS[COMP_CWORD - 1]} current=''
    fi
    case $option in
        --color) choices='auto always never' ;;
        --type) choices='string boolean integer real date data json' ;;
        --sort) choices='name size modified none' ;;
        --reader) choices='best bulk attribute plain' ;;
        --class)
            choices='curious caution warning failure minutia details subrosa debug'
            [[ $current == *,* ]] && prefix=${current%,*},
            ;;
        --file)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        -o | --output)
            choices=$(_switchboardctl_columns "$verb" "$action")
            [[ $current == *,* ]] && prefix=${current%,*},
            ;;
        '')
            if [[ -z $ended && $current == -* ]]; then
                choices=$(_switchboardctl_options "$verb")
            elif [[ -z $verb ]]; then
                choices=$verbs
            elif [[ $verb == call && $words == 1 ]]; then
                choices='version build barrier'
            elif [[ $verb == archive && $words == 0 ]]; then
                choices='show to-json from-json diff'
            elif [[ $verb == prefs && $words == 0 ]]; then
                choices='read write delete list'
            elif [[ $verb == path && $words == 0 ]]; then
                choices='stat ls tree volumes real'
            elif [[ $verb == archive || $verb == path ]]; then
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
                return
            fi
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -P "$prefix" -W "$choices" -- "${current#"$prefix"}")
}

complete -F _switchboardctl switchboardctl
