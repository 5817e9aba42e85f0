# Completion of switchboardctl's verbs and options in fish.
#
# Identifiers, names and times are not completed: only their owner knows them.

# The verb and the words after it that stand before the cursor, one a line; options and their values left out.
function __switchboardctl_words
    set -l wants_value
    set -l ended
    for word in (commandline -opc)[2..-1]
        if test -n "$wants_value"
            set wants_value
        else if test -z "$ended"; and test "$word" = --
            set ended yes
        else if test -z "$ended"; and string match -q -- '-*' $word
            contains -- $word --color --timeout --count --component-version --build-number --source --info \
                --info-json --type --sort --reader --depth -o --output
            and set wants_value yes
        else
            echo $word
        end
    end
end

function __switchboardctl_no_verb
    test -z (__switchboardctl_words)[1]
end

# Whether the verb is one of those given.
function __switchboardctl_verb
    contains -- (__switchboardctl_words)[1] $argv
end

# Whether the question to a publisher comes next.
function __switchboardctl_question
    __switchboardctl_verb call
    and test (count (__switchboardctl_words)) -eq 2
end

# Whether what to do with an archive comes next, or a file.
function __switchboardctl_archive_action
    __switchboardctl_verb archive
    and test (count (__switchboardctl_words)) -eq 1
end

function __switchboardctl_archive_file
    __switchboardctl_verb archive
    and test (count (__switchboardctl_words)) -ge 2
end

# Whether what to do with preferences comes next.
function __switchboardctl_prefs_action
    __switchboardctl_verb prefs
    and test (count (__switchboardctl_words)) -eq 1
end

# Whether what to do with paths comes next, a path, or an option of that action.
function __switchboardctl_path_action
    __switchboardctl_verb path
    and test (count (__switchboardctl_words)) -eq 1
end

function __switchboardctl_path_file
    __switchboardctl_verb path
    and test (count (__switchboardctl_words)) -ge 2
end

function __switchboardctl_path_columns
    switch (__switchboardctl_words)[2]
        case stat
            __switchboardctl_columns path name extension display_name display_path url kind type exists \
                kept_by_backups size allocated data_length resource_length target entries mount_point links hard_link \
                permissions mode owner_id owner group_id group access flags acl created modified changed id device \
                script hidden hidden_extension excluded_from_backup package volume_identifier volume \
                volume_relative_path real_path transfer_size_min transfer_size_max file_size_bits
        case ls tree
            __switchboardctl_columns mode links owner group size modified kind allocated data_length owner_id group_id \
                access flags created changed id device target path name
        case volumes
            __switchboardctl_columns path name display_path type device fsid uuid synthetic_uuid device_number \
                mounted_by_id mounted_by created data_volume total free available block_size transfer_size files \
                files_free file_size_max mount_bits flags format interfaces \
                {,native_}{common,volume,directory,file}_attributes
    end
end

# The columns given, appended to those that are typed already.
function __switchboardctl_columns
    set -l typed (string match -r '.*,' -- (commandline -ct | string replace -r '^(--output=|-o)' ''))
    printf "$typed%s\n" $argv
end

complete -c switchboardctl -f

complete -c switchboardctl -n __switchboardctl_no_verb -a version -d 'Print the version of the switchboard'
complete -c switchboardctl -n __switchboardctl_no_verb -a build -d 'Print the build number of the switchboard'
complete -c switchboardctl -n __switchboardctl_no_verb -a ping -d 'Print how long the switchboard takes to answer'
complete -c switchboardctl -n __switchboardctl_no_verb -a publish -d 'Serve a component under an identifier'
complete -c switchboardctl -n __switchboardctl_no_verb -a query -d 'Tell who publishes an identifier'
complete -c switchboardctl -n __switchboardctl_no_verb -a call -d 'Ask a publisher directly'
complete -c switchboardctl -n __switchboardctl_no_verb -a wait -d 'Wait until an identifier is published, or is not any more'
complete -c switchboardctl -n __switchboardctl_no_verb -a post -d 'Post a notification'
complete -c switchboardctl -n __switchboardctl_no_verb -a monitor -d 'Print notifications as they come'
complete -c switchboardctl -n __switchboardctl_no_verb -a archive -d 'Show, convert and compare keyed archives'
complete -c switchboardctl -n __switchboardctl_no_verb -a prefs -d 'Read and change preferences'
complete -c switchboardctl -n __switchboardctl_no_verb -a locations -d 'Print where the suite keeps its files'
complete -c switchboardctl -n __switchboardctl_no_verb -a path -d 'Show files, folders and volumes'
complete -c switchboardctl -n __switchboardctl_no_verb -a log -d 'Read the log of the suite'

complete -c switchboardctl -n __switchboardctl_archive_action -a 'show to-json from-json diff'
complete -c switchboardctl -n __switchboardctl_archive_file -F
complete -c switchboardctl -n __switchboardctl_prefs_action -a 'read write delete list'
complete -c switchboardctl -n __switchboardctl_path_action -a 'stat ls tree volumes real'
complete -c switchboardctl -n __switchboardctl_path_file -F
complete -c switchboardctl -n __switchboardctl_question -a 'version build barrier'

complete -c switchboardctl -s h -l help -d 'Print help and exit'
complete -c switchboardctl -l version -d 'Print the version of this program and exit'
complete -c switchboardctl -l user -d 'Your own switchboard; for root, =UID for that of a user'
complete -c switchboardctl -l system -d 'The switchboard of the machine'
complete -c switchboardctl -s j -l json -d 'Print JSON, one object per line'
complete -c switchboardctl -s q -l quiet -d 'Print no notes, only answers and errors'
complete -c switchboardctl -s v -l verbose -d 'Tell on standard error what is done'
complete -c switchboardctl -l no-legend -d 'Print no header'
complete -c switchboardctl -l no-pager -d 'Print straight to standard output'
complete -c switchboardctl -l color -x -a 'auto always never' -d 'Whether the header stands out'
complete -c switchboardctl -l timeout -x -d 'How long to wait for an answer: 500ms, 30s, 2m'

complete -c switchboardctl -n '__switchboardctl_verb ping monitor' -l count -x -d 'So many and no more'
complete -c switchboardctl -n '__switchboardctl_verb ping' -s o -l output -x -d 'The columns to print' \
    -a '(__switchboardctl_columns seq time)'
complete -c switchboardctl -n '__switchboardctl_verb query' -s o -l output -x -d 'The columns to print' \
    -a '(__switchboardctl_columns id pid user uid gid process)'
complete -c switchboardctl -n '__switchboardctl_verb monitor' -s o -l output -x -d 'The columns to print' \
    -a '(__switchboardctl_columns time name source info)'
complete -c switchboardctl -n '__switchboardctl_verb prefs' -s o -l output -x -d 'The columns to print' \
    -a '(__switchboardctl_columns key type value)'
complete -c switchboardctl -n '__switchboardctl_verb locations' -s o -l output -x -d 'The columns to print' \
    -a '(__switchboardctl_columns name exists mode owner group path)'
complete -c switchboardctl -n '__switchboardctl_verb prefs' -l type -x -d 'What to write' \
    -a 'string boolean integer real date data json'
complete -c switchboardctl -n '__switchboardctl_verb publish' -l component-version -x -d 'The version that it answers'
complete -c switchboardctl -n '__switchboardctl_verb publish' -l build-number -x -d 'The build number that it answers'
complete -c switchboardctl -n '__switchboardctl_verb wait' -l gone -d 'Wait until nobody publishes it'
complete -c switchboardctl -n '__switchboardctl_verb post' -l source -x -d 'Who says so: any text'
complete -c switchboardctl -n '__switchboardctl_verb post' -l info -x -d 'What else to say, as strings'
complete -c switchboardctl -n '__switchboardctl_verb post' -l info-json -x -d 'What else to say, with types'
complete -c switchboardctl -n '__switchboardctl_verb monitor' -l source -x -d 'Only what this source posts'
complete -c switchboardctl -n '__switchboardctl_verb log' -s f -l follow -d 'Go on with what is written from now on'
complete -c switchboardctl -n '__switchboardctl_verb log' -s n -l lines -x -d 'Only the last so many'
complete -c switchboardctl -n '__switchboardctl_verb log' -l since -x -d 'From then on: 10m, or a date'
complete -c switchboardctl -n '__switchboardctl_verb log' -l until -x -d 'Up to then: 10m, or a date'
complete -c switchboardctl -n '__switchboardctl_verb log' -l id -x -d 'That line and all below it'
complete -c switchboardctl -n '__switchboardctl_verb log' -l class -x -d 'Only these' \
    -a '(__switchboardctl_columns curious caution warning failure minutia details subrosa debug)'
complete -c switchboardctl -n '__switchboardctl_verb log' -l program -x -d 'What that program wrote'
complete -c switchboardctl -n '__switchboardctl_verb log' -l pid -x -d 'What that process wrote'
complete -c switchboardctl -n '__switchboardctl_verb log' -l grep -x -d 'Messages with these words'
complete -c switchboardctl -n '__switchboardctl_verb log' -l tree -d 'Each line below the one that it belongs to'
complete -c switchboardctl -n '__switchboardctl_verb log' -l file -r -F -d 'Read this file'
complete -c switchboardctl -n '__switchboardctl_verb path' -s l -l long -d 'For ls: attributes in front of the names'
complete -c switchboardctl -n '__switchboardctl_verb path' -s a -l all -d 'For ls and tree: also hidden items'
complete -c switchboardctl -n '__switchboardctl_verb path' -l sort -x -d 'For ls and tree: the order' \
    -a 'name size modified none'
complete -c switchboardctl -n '__switchboardctl_verb path' -l reader -x -d 'For ls and tree: how folders are read' \
    -a 'best bulk attribute plain'
complete -c switchboardctl -n '__switchboardctl_verb path' -l depth -x -d 'For tree: so many levels below the first'
complete -c switchboardctl -n '__switchboardctl_verb path' -s x -l one-volume -d 'For tree: enter no other volume'
complete -c switchboardctl -n '__switchboardctl_verb path' -l browsable -d 'For volumes: those with files of people'
complete -c switchboardctl -n '__switchboardctl_verb path' -s o -l output -x -d 'The columns to print' \
    -a '(__switchboardctl_path_columns)'
