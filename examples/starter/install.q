# Questions, a section for each entry of the menu. Error ends the flow when its setting is
# false; Loop then goes on at a line of its section, counted from 0.
# type    setting   if-setting  is     help  text
[install]
DirExist  dir       ours        false  -     Directory to make the folder hello in
Exist     $(dir)/hello  taken
Loop      taken     4
Error     ours      -  There is a folder hello already, which this installer has not made.
Text      port      has_conf    false  -     Port to listen on

[upgrade]
Error     has_conf  -  There is nothing to upgrade: install it first.
YN        sure      -           -      -     Upgrade $(dir)/hello
Error     sure      -  Nothing was changed.

[remove]
Error     present   -  There is nothing to remove.
YN        sure      -           -      -     Remove $(dir)/hello and all that is in it
Error     sure      -  Nothing was removed.
