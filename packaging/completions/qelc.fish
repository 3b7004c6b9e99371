# Completion of qelc for fish. qelc itself tells which words there are, in lines of four fields: the verb that
# is given already, a kind, the word, and what it is.

# Words with descriptions for the place of the cursor; files where a value is due.
function __qelc_words
    set -l table (qelc --verbs-for completion 2>/dev/null)
    set -l context ''
    set -l skip no
    for word in (commandline --tokenize --cut-at-cursor --current-process)[2..-1]
        if test $skip = yes
            set skip no
            continue
        end
        for line in $table
            set -l field (string split \t -- $line)
            if test "$field[3]" = "$word"; and test "$field[1]" = "$context" -o "$field[1]$field[2]" = value -o "$field[1]$field[2]" = option
                test $field[2] = value; and set skip yes
                test $field[2] = verb; and set context (string trim "$context $word")
                break
            end
        end
    end
    if test $skip = yes
        __fish_complete_path (commandline --current-token)
        return
    end
    for line in $table
        set -l field (string split \t -- $line)
        if test "$field[1]" = "$context"; or begin
                test "$field[1]" = ''; and test $field[2] != verb
            end
            printf '%s\t%s\n' $field[3] $field[4]
        end
    end
end

complete --command qelc --no-files --arguments '(__qelc_words)'
