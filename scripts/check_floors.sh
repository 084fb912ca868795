#!/bin/bash
# The house has floors: a folder includes only from itself and from folders below it. Says which
# #include lines break that, and fails if there are any.
set -eu
cd "$(dirname "$0")/.."

# FOLDER: the folders it may include from, besides itself.
allowed() {
    case $1 in
        common) ;;
        protocol | camera) echo common ;;
        media) echo common protocol camera ;;
        config) echo common protocol camera media ;;
        server) echo common protocol camera media config ;;
        app) echo common protocol camera media config server ;;
        hosts | recorder) echo common protocol camera media ;; # of camera and media: layouts, below
        *) echo common protocol camera media config server app hosts recorder tests ;;
    esac
}

layouts='camera/(parameter_block_layout|image_fields|parameter_fields|parameter_message|alarm_block)\.h'
layouts+='|media/(ring_layout|media_layout)\.h'

failed=0
for folder in common protocol camera media config server app hosts recorder; do
    may=" $folder $(allowed $folder) "
    while IFS=: read -r file line include; do
        path=${include#*\"} && path=${path%%\"*}
        case $may in *" ${path%%/*} "*) ;; *)
            echo "$file:$line: $folder/ may not include $path" && failed=1 && continue ;;
        esac
        case $folder:$path in
            hosts:camera/* | hosts:media/* | recorder:camera/* | recorder:media/*)
                [[ $path =~ ^($layouts)$ ]] || { echo "$file:$line: $folder/ may use only layouts, not $path" && failed=1; }
                ;;
        esac
    done < <(grep -rnE '^#include "' --include='*.h' --include='*.cpp' "$folder" || true)
done
exit $failed
