# Guestbook: the questions of each flow, one section for each.
#
#   asked:      type      setting  if-setting  is  help  text
#   automatic:  Copy      setting  -  -  -  from-setting
#               Exist     path  setting               true or false
#               Error     setting  help  text         ends the flow when it is false
#               Loop      setting  line               goes to the line when it is false
#
# A question is asked when the setting in the third column has exactly the value in the
# fourth, or, with "-" there, when it is true; with "-" for both always. The default
# is the value that the setting has; the program adds it, and the question mark.
# Loop counts the lines of its section from 0: the numbers at the left margin of the
# comments. Automatic lines stand behind the questions where they can, because the
# answer "b" goes back by one line, whatever that is.

[install]
# 0: the answers are noted down beside the installer.
Error    can_write  -  This folder cannot be written to. Nothing was installed.
# 1: either the web server's own directories, which must be there, or new ones.
DirExist web_root      root_from  httpd    -  Document directory of the web server
Dir      web_root      root_from  nowhere  -  Directory for web pages (full path)
# 3: FileName keeps the bare name, without directory and ending.
FileName folder        installed  false    -  Name of the guestbook's own folder in it
# 4
DirExist cgi_dir       cgi_from   httpd    -  Directory of the web server's CGI programs
Dir      cgi_dir       cgi_from   nowhere  -  Directory for CGI programs (full path)
Text     cgi_url       installed  false    -  Path of that directory in a URL
# 7
YN       give_data     ask_owner  -        -  As root: give a new data directory to the web server's user
Text     www_user      give_data  -        -  User that the web server runs as
Text     www_group     give_data  -        -  Group that the web server runs as
# 10: the folder must not be there yet, unless this installer has made it.
Copy     clear  -  -  -  always
Exist    $(record_dir)/made-$(folder)  ours
Exist    $(web_root)/$(folder)  taken
Loop     taken  15
# 14
Copy     clear  -  -  -  ours
Exist    $(cgi_dir)/$(folder)  taken
Loop     taken  18
Copy     clear  -  -  -  ours
# 18: back to the name of the folder, or the end. Taking defaults, it is the end.
Copy     give_up  -  -  -  always
YN       give_up       clear      false    -  Folder "$(folder)" is in use. Give up (n: other name)
Loop     give_up  3
Error    clear  -  The folder is in use. Nothing was installed.
# 22: entries and settings of an earlier time stay, unless the answer is no.
Exist    $(data_dir)/guestbook.conf  has_data
Copy     reuse  -  -  -  has_data
YN       reuse         has_data   -        -  There is a guestbook in $(data_dir). Keep its settings
# 25: a directory that an earlier run has begun with is settled; else it must be empty,
# because it will be the guestbook's alone.
Loop     fresh  27
DirEmpty data_dir      reuse      false    -  Directory for the entries (full path, new or empty)
# 27
Text     title         reuse      false    -  Title of the guestbook
Text     page_size     reuse      false    -  Number of entries to show
YN       newest_first  reuse      false    -  Show the newest entry first
FileExist welcome_from reuse      false    -  Text file with the words of welcome
# 31: kept data keep their owner as well.
Loop     reuse  33
Copy     give_data  -  -  -  never

[upgrade]
# In this section, other than in the rest, the text of Error may name settings.
Error    can_write  -  The folder $(current_dir) cannot be written to. Nothing was changed.
# The places are known when the installation was made from this folder.
DirExist web_root      installed  false    -  Directory with the guestbook's folder of pages
FileName folder        installed  false    -  Name of the guestbook's folder
DirExist cgi_dir       installed  false    -  Directory with the guestbook's folder of programs
Text     cgi_url       installed  false    -  Path of that directory in a URL
DirExist data_dir      installed  false    -  Directory with the entries
YN       go_on         -          -        -  Upgrade $(product) $(old_version) to $(version)
Error    go_on  -  Nothing was changed.
Exist    $(web_root)/$(folder)/index.html  there
Error    there  -  There is no guestbook in $(web_root)/$(folder): install it instead.
Exist    $(cgi_dir)/$(folder)/guestbook.path  there
Error    there  -  There is no guestbook in $(cgi_dir)/$(folder): install it instead.
Exist    $(data_dir)/guestbook.conf  there
Error    there  -  There are no settings in $(data_dir): install it instead.

[remove]
# Directories that are gone already are no hindrance here: Dir, not DirExist.
Dir      web_root      begun      false    -  Directory with the guestbook's folder of pages
FileName folder        begun      false    -  Name of the guestbook's folder
Dir      cgi_dir       begun      false    -  Directory with the guestbook's folder of programs
Dir      data_dir      settled    false    -  Directory with the entries
# Only what is known to be a guestbook's data can be lost; a "no" given for another
# directory, before the answers were changed, does not count.
Copy     keep  -  -  -  always
Exist    $(data_dir)/guestbook.conf  has_data
YN       keep          has_data   -        -  Keep the entries and settings in $(data_dir)

# ./install -special archive: puts the entries away, so that the guestbook begins anew.
[archive]
# 0
DirExist data_dir      settled    false    -  Directory with the entries
Exist    $(data_dir)/entries.txt  has_entries
Error    has_entries  -  There are no entries to put away.
# 3: File takes the name as it is, with its ending.
File     archive_name  -          -        -  Name of the archive file
Exist    $(data_dir)/archive/$(archive_name)  taken
Loop     taken  7
# 6: "never" is always false, so that this line, when it is reached, ends the flow.
Error    never  -  There is an archive of that name already. Nothing was done.
