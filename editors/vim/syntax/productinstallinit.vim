" The probes of a product: see product-install-init(5).
if exists('b:current_syntax')
  finish
endif
let b:current_syntax = 'productinstallinit'

syntax case match
syntax match productinstallWrong /^\s*\zs[^# \t]\S*/
syntax match productinstallCommand /^\s*\zs\%(Exist\|Copy\|TimeDate\|WFile\|RFile\)\ze\s/
syntax match productinstallCommand /^\s*\zsHTTP_\%(User\|Group\|Root\|Scripts\)\ze\s/
syntax match productinstallNone /\s\zs-\ze\%(\s\|$\)/
syntax match productinstallReference /\$([^)]*)/
" A line of fewer than five fields leaves its remains to the next one.
syntax match productinstallWrong /^\s*[^# \t]\S*\%(\s\+\S\+\)\{0,3}\s*$/
syntax match productinstallComment /^\s*#.*/

highlight default link productinstallCommand Statement
highlight default link productinstallNone Special
highlight default link productinstallReference PreProc
highlight default link productinstallWrong Error
highlight default link productinstallComment Comment
