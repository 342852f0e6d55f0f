# Commands, a section for each entry of the menu. Install and upgrade stop at the first that
# fails. The note comes first: what an install that failed has made can then be removed.
[install]
WFile     installed                dir
MkDir     $(dir)/hello
Chmod     $(dir)/hello             -  755                          has_conf  false
CopyFile  pages/*.html             -  $(dir)/hello
Chmod     $(dir)/hello/*.html      -  644
Ini       hello.conf.in            $(dir)/hello/hello.new          has_conf  false
Chmod     $(dir)/hello/hello.new   -  640                          has_conf  false
Rename    $(dir)/hello/hello.new   $(dir)/hello/hello.conf         has_conf  false

[upgrade]
CopyFile  pages/*.html             -  $(dir)/hello
Chmod     $(dir)/hello/*.html      -  644

[remove]
RmDir     $(dir)/hello             -
Exist     $(dir)/hello             there
RmFile    installed                -                               there     false
