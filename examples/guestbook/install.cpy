# Guestbook: what is done to the disk, one section for each flow.
#
#   CopyFile, CopyDir  source  not  directory     MkDir   directory
#   Chown              source  not  user:group    Ini     template  file
#   Chmod              source  not  mode          Rename  from  to
#   RmFile, RmDir      source  not                Exist   path  setting
#   WFile              file  setting              RFile   file  setting
#   Error              setting message: what "Failed" shows when the setting is false
#
# One blank goes before the message: more would be shown.
# Each but Error may end in if-setting and is: the line is done when the setting has
# that value (or the value of the setting of that name); without "is", when it is true.
# "not" lists wildcards for what is left out, with "-" for nothing.
#
# References are filled in when the section is read. What Exist finds out is therefore
# good for the last two columns, and for Error, but not for a path.
# The directory that is copied to must be there, and its name must not end in "/".
# Install and upgrade stop at the first line that fails. A line with wildcards, or with
# a whole directory, fails only when nothing at all was done: hence one line for each file.

[install]
# RFile in a copy script empties the file, however it is named: never use it on a file
# that matters. Here the file is the probe, which goes anyway.
RFile    $(current_dir)/probe.tmp  probe
RmFile   $(current_dir)/probe.tmp  -

# The three places. With a "/" in front only a full path can still be found.
MkDir    $(web_root)
MkDir    $(cgi_dir)
MkDir    $(data_dir)
Exist    /$(web_root)  full
Error    full The directory for web pages must be a full path, beginning with "/".
Exist    /$(cgi_dir)   full
Error    full The directory for CGI programs must be a full path, beginning with "/".
Exist    /$(data_dir)  full
Error    full The directory for the entries must be a full path, beginning with "/".

# Before anything is made in them, note down that it is ours and where it goes: a run that
# is cut short can then be repeated. WFile writes the value of a setting, with no line end.
MkDir    $(record_dir)
WFile    $(record_dir)/made-$(folder)  web_root
WFile    $(record_dir)/data_dir        data_dir
WFile    $(record_dir)/folder          folder
WFile    $(record_dir)/cgi_dir         cgi_dir
WFile    $(record_dir)/cgi_url         cgi_url
WFile    $(record_dir)/web_root        web_root
MkDir    $(web_root)/$(folder)/style
MkDir    $(cgi_dir)/$(folder)
MkDir    $(data_dir)/archive

# The pages. Ini fills the references in a text file and writes it under another name.
CopyDir  $(current_dir)/pages/style          *.bak,*~  $(web_root)/$(folder)
CopyFile $(current_dir)/pages/about.html     -         $(web_root)/$(folder)
Ini      $(current_dir)/pages/index.html.in  $(web_root)/$(folder)/index.html

# The program, and beside it the place of its data.
CopyFile $(current_dir)/cgi/guestbook.cgi    -         $(cgi_dir)/$(folder)
WFile    $(cgi_dir)/$(folder)/guestbook.path           data_dir

# Chmod goes through the whole tree with one mode, here past all but the directories.
Chmod    $(web_root)/$(folder)                      *.html,*.css   755
Chmod    $(web_root)/$(folder)/about.html           -              644
Chmod    $(web_root)/$(folder)/index.html           -              644
Chmod    $(web_root)/$(folder)/style/guestbook.css  -              644
Chmod    $(cgi_dir)/$(folder)                       *.cgi,*.path   755
Chmod    $(cgi_dir)/$(folder)/guestbook.cgi         -              755
Chmod    $(cgi_dir)/$(folder)/guestbook.path        -              644

# The data, unless the earlier ones are kept. They are written under other names first: the
# words of welcome may come from the very file that they replace. The last line makes it all
# count: until then there is no guestbook.conf, and a repeated run writes everything again.
Ini      $(welcome_from)                   $(data_dir)/welcome.txt.new     reuse  false
Ini      $(current_dir)/guestbook.conf.in  $(data_dir)/guestbook.conf.new  reuse  false
Chown    $(data_dir)/welcome.txt.new       -                $(www_user):$(www_group)  give_data
Chown    $(data_dir)/guestbook.conf.new    -                $(www_user):$(www_group)  give_data
Chown    $(data_dir)/archive               -                $(www_user):$(www_group)  give_data
Chown    $(data_dir)                       *.new,*/archive  $(www_user):$(www_group)  give_data
Rename   $(data_dir)/welcome.txt.new       $(data_dir)/welcome.txt         reuse  false
Rename   $(data_dir)/guestbook.conf.new    $(data_dir)/guestbook.conf      reuse  false

# Is it all there?
Exist    $(web_root)/$(folder)/index.html    there
Error    there $(web_root)/$(folder)/index.html is missing.
Exist    $(web_root)/$(folder)/about.html    there
Error    there $(web_root)/$(folder)/about.html is missing.
Exist    $(web_root)/$(folder)/style/guestbook.css  there
Error    there $(web_root)/$(folder)/style/guestbook.css is missing.
Exist    $(cgi_dir)/$(folder)/guestbook.cgi  there
Error    there $(cgi_dir)/$(folder)/guestbook.cgi is missing.
Exist    $(data_dir)/guestbook.conf          there
Error    there $(data_dir)/guestbook.conf is missing.

# The version comes last: with it, the guestbook counts as installed.
WFile    $(record_dir)/version         version

[upgrade]
RFile    $(current_dir)/probe.tmp  probe
RmFile   $(current_dir)/probe.tmp  -

# These are there already, but perhaps not all of them in an older release.
MkDir    $(record_dir)
MkDir    $(web_root)/$(folder)/style
MkDir    $(cgi_dir)/$(folder)/new
MkDir    $(data_dir)/archive

CopyDir  $(current_dir)/pages/style          *.bak,*~  $(web_root)/$(folder)
CopyFile $(current_dir)/pages/about.html     -         $(web_root)/$(folder)
Ini      $(current_dir)/pages/index.html.in  $(web_root)/$(folder)/index.html
Chmod    $(web_root)/$(folder)/about.html           -              644
Chmod    $(web_root)/$(folder)/index.html           -              644
Chmod    $(web_root)/$(folder)/style/guestbook.css  -              644

# The program is in use: the new one is made ready beside it and put in its place at once.
CopyFile $(current_dir)/cgi/guestbook.cgi        -    $(cgi_dir)/$(folder)/new
Chmod    $(cgi_dir)/$(folder)/new/guestbook.cgi  -    755
Rename   $(cgi_dir)/$(folder)/new/guestbook.cgi  $(cgi_dir)/$(folder)/guestbook.cgi
RmDir    $(cgi_dir)/$(folder)/new                -

Exist    $(web_root)/$(folder)/index.html    there
Error    there $(web_root)/$(folder)/index.html is missing.
Exist    $(cgi_dir)/$(folder)/guestbook.cgi  there
Error    there $(cgi_dir)/$(folder)/guestbook.cgi is missing.

# Entries, welcome and guestbook.conf in $(data_dir) are the administrator's: not touched.

# An installation that was made from another folder is looked after from this one now.
WFile    $(record_dir)/made-$(folder)  web_root
WFile    $(record_dir)/data_dir        data_dir
WFile    $(record_dir)/folder          folder
WFile    $(record_dir)/cgi_dir         cgi_dir
WFile    $(record_dir)/cgi_url         cgi_url
WFile    $(record_dir)/web_root        web_root
WFile    $(record_dir)/version         version

[remove]
# Remove and the special tasks go on when a line fails: what is gone already does not matter.
RmFile   $(current_dir)/probe.tmp  -

# RmDir takes a directory with all that is in it, so only a guestbook's folder may go:
# one that was noted down here, or one that holds what only a guestbook has.
Exist    $(record_dir)/made-$(folder)               made
RmDir    $(web_root)/$(folder)  -                   made
RmDir    $(cgi_dir)/$(folder)   -                   made
Exist    $(web_root)/$(folder)/style/guestbook.css  ours
RmDir    $(web_root)/$(folder)  -                   ours
Exist    $(cgi_dir)/$(folder)/guestbook.path        ours
RmDir    $(cgi_dir)/$(folder)   -                   ours

# The entries, when they are not kept: renamed first, in one step, so that a run that is
# cut short has decided, and the next one finishes the work.
Rename   $(data_dir)  $(data_dir).removed           keep     false
Exist    $(data_dir).removed                        removed
RmDir    $(data_dir).removed    -                   removed

# The notes, when the folders have really gone: until then a repeated run needs them. The place
# of entries that are still there stays noted, so that the next install finds them.
Exist    $(web_root)/$(folder)                      there
Exist    $(cgi_dir)/$(folder)                       there    there    false
Exist    $(data_dir)/guestbook.conf                 has_data
Exist    $(data_dir)                                has_data has_data false
RmFile   $(record_dir)/*        data_dir            there    false
Exist    $(record_dir)                              has_data there
RmDir    $(record_dir)          -                   has_data false

[archive]
RmFile   $(current_dir)/probe.tmp  -
MkDir    $(data_dir)/archive
Rename   $(data_dir)/entries.txt   $(data_dir)/archive/$(archive_name)
