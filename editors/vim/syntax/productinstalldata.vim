" The settings of a product: see product-install-data(5).
if exists('b:current_syntax')
  finish
endif
let b:current_syntax = 'productinstalldata'

syntax case match
syntax match productinstallSetting /^\s*\zs[^# \t]\S*/
" These are built in: a line that names one is never found.
syntax match productinstallWrong /^\s*\zs\%(host\|system_dir\|current_dir\|action\)\ze\%(\s\|$\)/
syntax match productinstallReference /\$([^)]*)/
syntax match productinstallComment /^\s*#.*/

highlight default link productinstallSetting Identifier
highlight default link productinstallWrong Error
highlight default link productinstallReference PreProc
highlight default link productinstallComment Comment
