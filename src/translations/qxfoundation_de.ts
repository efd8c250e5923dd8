<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en_US">
<context>
    <name>QXFoundation</name>
    <message>
        <source>Rate %@</source>
        <translation>%@ bewerten</translation>
    </message>
    <message>
        <source>If you enjoy playing %@, would you mind taking a moment to rate it? It won’t take more than a minute. Thanks for your support!</source>
        <translation>Wenn dir %@ Spaß macht, würdest du dir einen Moment Zeit nehmen, es zu bewerten? Es dauert nicht länger als eine Minute. Danke für deine Unterstützung!</translation>
    </message>
    <message>
        <source>If you enjoy using %@, would you mind taking a moment to rate it? It won’t take more than a minute. Thanks for your support!</source>
        <translation>Wenn dir %@ gefällt, würdest du dir einen Moment Zeit nehmen, es zu bewerten? Es dauert nicht länger als eine Minute. Danke für deine Unterstützung!</translation>
    </message>
    <message>
        <source>No, Thanks</source>
        <translation>Nein, danke</translation>
    </message>
    <message>
        <source>Rate It Now</source>
        <translation>Jetzt bewerten</translation>
    </message>
    <message>
        <source>Remind Me Later</source>
        <translation>Später erinnern</translation>
    </message>
    <message>
        <source>ago</source>
        <translation>vor</translation>
    </message>
    <message>
        <source>just now</source>
        <translation>gerade eben</translation>
    </message>
    <message>
        <source>from now</source>
        <translation>in</translation>
    </message>
    <message>
        <source>Deictic Expression Format String</source>
        <translation>%2$@ %1$@</translation>
    </message>
    <message>
        <source>Suffix Expression Format String</source>
        <translation>%@ %@</translation>
    </message>
    <message>
        <source>about %@</source>
        <translation>etwa %@</translation>
    </message>
    <message>
        <source>Method Not Implemented</source>
        <translation>Methode nicht implementiert</translation>
    </message>
    <message>
        <source>year</source>
        <translation>Jahr</translation>
    </message>
    <message>
        <source>years</source>
        <translation>Jahren</translation>
    </message>
    <message>
        <source>yr</source>
        <translation>J.</translation>
    </message>
    <message>
        <source>yrs</source>
        <translation>J.</translation>
    </message>
    <message>
        <source>month</source>
        <translation>Monat</translation>
    </message>
    <message>
        <source>months</source>
        <translation>Monaten</translation>
    </message>
    <message>
        <source>mo</source>
        <translation>Mon.</translation>
    </message>
    <message>
        <source>mos</source>
        <translation>Mon.</translation>
    </message>
    <message>
        <source>week</source>
        <translation>Woche</translation>
    </message>
    <message>
        <source>weeks</source>
        <translation>Wochen</translation>
    </message>
    <message>
        <source>wk</source>
        <translation>Wo.</translation>
    </message>
    <message>
        <source>wks</source>
        <translation>Wo.</translation>
    </message>
    <message>
        <source>day</source>
        <translation>Tag</translation>
    </message>
    <message>
        <source>days</source>
        <translation>Tagen</translation>
    </message>
    <message>
        <source>hour</source>
        <translation>Stunde</translation>
    </message>
    <message>
        <source>hours</source>
        <translation>Stunden</translation>
    </message>
    <message>
        <source>hr</source>
        <translation>Std.</translation>
    </message>
    <message>
        <source>hrs</source>
        <translation>Std.</translation>
    </message>
    <message>
        <source>minute</source>
        <translation>Minute</translation>
    </message>
    <message>
        <source>minutes</source>
        <translation>Minuten</translation>
    </message>
    <message>
        <source>min</source>
        <translation>Min.</translation>
    </message>
    <message>
        <source>mins</source>
        <translation>Min.</translation>
    </message>
    <message>
        <source>second</source>
        <translation>Sekunde</translation>
    </message>
    <message>
        <source>seconds</source>
        <translation>Sekunden</translation>
    </message>
    <message>
        <source>s</source>
        <translation>s</translation>
    </message>
    <message>
        <source>Byte</source>
        <translation>Byte</translation>
    </message>
    <message>
        <source>KB</source>
        <translation>KB</translation>
    </message>
    <message>
        <source>MB</source>
        <translation>MB</translation>
    </message>
    <message>
        <source>GB</source>
        <translation>GB</translation>
    </message>
</context>
</TS>
